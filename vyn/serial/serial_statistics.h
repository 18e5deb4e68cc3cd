// The link statistics of the serial port: what the receive assembler and the
// writer have counted since the port was last opened.
#pragma once

#include <cstdint>

struct _SERIAL_LINK_STATISTICS {
  uint32_t frames_received;
  uint32_t bytes_received;
  uint32_t frames_sent;
  uint32_t bytes_sent;
  uint32_t isd;       // bytes dropped while waiting for a start delimiter
  uint32_t ihcs;      // frames with a wrong header checksum
  uint32_t ipcs;      // frames with a wrong payload checksum
  uint32_t too_long;  // frames declaring 1024 bytes or more, or filling the buffer
  uint32_t timeout;   // pending receptions given up
};
