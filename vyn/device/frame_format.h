// The two frame layouts of the device link and what the sending side, the
// receiving side and the readers of received frames share about them: the
// framing selectors, start delimiters, sizes, the assembler's results, the
// message ids that carry frames and the record those messages hold.
//
// CCPU frame (multi-byte fields little-endian):
//   0 start delimiter 0x42 | 1..2 command id | 3..4 payload length N |
//   5 sequence number | 6 header checksum = (bytes 1..5) mod 256 |
//   7.. N payload bytes | 7+N payload checksum = (payload) mod 256, only when N > 0.
//   7 bytes when N = 0, N + 8 otherwise.
// MCPU frame:
//   0 start delimiter 0x3E | 1 command id | 2 payload length N (0..255) |
//   3 header checksum = (bytes 1..2) mod 256 | 4.. N payload bytes |
//   4+N payload checksum, always present (0 when N = 0). N + 5 bytes.
//
// Thread-safety: constants and a plain record; nothing to guard.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vyn/base/platform_types.h"
#include "vyn/core/message_types.h"

class CVYNSerialPort;

// Framing selectors.
constexpr uint16_t PROTOCOL_CCPU = 0x1800;
constexpr uint16_t PROTOCOL_MCPU = 0x4800;

// Start delimiters.
constexpr unsigned char CCPU_START_DELIMITER = 0x42;  // 'B'
constexpr unsigned char MCPU_START_DELIMITER = 0x3E;  // '>'

// Every frame travels in, and is received into, a record of this many bytes.
// The receiver takes frames of at most one byte less, so that a frame that
// fills the whole buffer is recognisably too long.
constexpr size_t SERIAL_FRAME_BUFFER_SIZE = 1024;
constexpr uint16_t SERIAL_FRAME_MAX_LENGTH = 1023;

// Header bytes in front of the payload: start delimiter, id, length,
// sequence number and header checksum for CCPU; delimiter, id, length and
// header checksum for MCPU. A CCPU frame without payload is only its header.
constexpr uint16_t CCPU_HEADER_LENGTH = 7;
constexpr uint16_t MCPU_HEADER_LENGTH = 4;
// The largest CCPU payload whose frame (N + 8 bytes) stays below the buffer size.
constexpr uint16_t CCPU_MAX_PAYLOAD_LENGTH = 1015;
constexpr uint16_t MCPU_MAX_PAYLOAD_LENGTH = 255;

// Results of the receive assembler; the reply parsers use RX_WRONG_LENGTH as
// well. They lie outside the library's named status codes on purpose.
constexpr int32_t RX_COMPLETE = 0;
constexpr int32_t RX_WRONG_LENGTH = -27;
constexpr int32_t RX_REJECTED = -28;
constexpr int32_t RX_INCOMPLETE = -29;
constexpr int32_t RX_BAD_PAYLOAD_CHECKSUM = -30;

// Ids of the messages that carry a _SERIAL_FRAME_RECORD:
// MSG_SERIAL_FRAME_RECEIVED and MSG_SERIAL_FRAME_SENT (vyn/core/message_types.h).

// One frame as it is handed to the application. The frame's own header gives
// its length; the bytes behind it are zero.
struct _SERIAL_FRAME_RECORD {
  CVYNSerialPort* port;  // the port that received or sent the frame; not owned
  SYSTEMTIME time;       // UTC, when the frame was handed over or written
  unsigned char frame[SERIAL_FRAME_BUFFER_SIZE];  // the frame from its start delimiter on
};
