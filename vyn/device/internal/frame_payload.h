// The bounds of a received frame's declared payload, shared by the parsers
// and renderers of frames. Internal: not part of the library's interface.
// Thread-safety: pure functions.
#pragma once

#include <cstdint>

#include "vyn/core/internal/frame_bytes.h"
#include "vyn/device/frame_format.h"

namespace vyn::device {

// The declared payload of a frame: where it starts and how long it is.
struct Payload {
  const unsigned char* data;
  uint16_t length;
};

// The CCPU payload, or false when the header declares more than a received
// frame can hold (such a payload would reach past the frame record).
inline bool CcpuPayload(const unsigned char* frame, Payload* payload) {
  const uint16_t length = LoadLittleEndian16(frame + 3);
  if (length > CCPU_MAX_PAYLOAD_LENGTH) return false;
  *payload = Payload{frame + CCPU_HEADER_LENGTH, length};
  return true;
}

// The MCPU payload; its one-byte length always fits a frame record.
inline Payload McpuPayload(const unsigned char* frame) {
  return Payload{frame + MCPU_HEADER_LENGTH, frame[2]};
}

}  // namespace vyn::device
