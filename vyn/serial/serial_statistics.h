// The link statistics of the serial port: what the receive assembler and the
// writer have counted since the port was last opened.
#pragma once

#include <cstdint>

// The counters, each wrapping at 2^32.
struct _SERIAL_LINK_STATISTICS {
  uint32_t frames_received;  // complete frames with good checksums, published
  uint32_t bytes_received;   // every byte read from the port, good or not
  uint32_t frames_sent;      // frames written to the port
  uint32_t bytes_sent;       // bytes of those frames
  uint32_t isd;              // bytes dropped while waiting for a start delimiter
  uint32_t ihcs;             // frames with a wrong header checksum
  uint32_t ipcs;             // frames with a wrong payload checksum
  uint32_t too_long;         // frames declaring 1024 bytes or more, or filling the buffer
  uint32_t timeout;          // pending receptions given up
};
