// Little-endian field access and the bounds of a frame's declared payload,
// shared by the builders, parsers and renderers of frames. Internal: not
// part of the library's interface.
// Thread-safety: pure functions.
#pragma once

#include <cstdint>
#include <cstring>

#include "vyn/device/frame_format.h"

namespace vyn::device {

inline uint16_t Read16(const unsigned char* p) { return static_cast<uint16_t>(p[0] | (p[1] << 8)); }

inline uint32_t Read32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline float ReadFloat(const unsigned char* p) {
  const uint32_t bits = Read32(p);
  float value = 0.0F;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

inline void Write16(unsigned char* p, uint16_t value) {
  p[0] = static_cast<unsigned char>(value);
  p[1] = static_cast<unsigned char>(value >> 8);
}

inline void Write32(unsigned char* p, uint32_t value) {
  Write16(p, static_cast<uint16_t>(value));
  Write16(p + 2, static_cast<uint16_t>(value >> 16));
}

// Sum of `count` bytes mod 256.
inline unsigned char Sum8(const unsigned char* p, size_t count) {
  unsigned int sum = 0;
  for (size_t i = 0; i < count; ++i) sum += p[i];
  return static_cast<unsigned char>(sum);
}

// The declared payload of a frame: where it starts and how long it is.
struct Payload {
  const unsigned char* data;
  uint16_t length;
};

// The CCPU payload, or false when the header declares more than a received
// frame can hold (such a payload would reach past the frame record).
inline bool CcpuPayload(const unsigned char* frame, Payload* payload) {
  const uint16_t length = Read16(frame + 3);
  if (length > CCPU_MAX_PAYLOAD_LENGTH) return false;
  *payload = Payload{frame + CCPU_HEADER_LENGTH, length};
  return true;
}

// The MCPU payload; its one-byte length always fits a frame record.
inline Payload McpuPayload(const unsigned char* frame) {
  return Payload{frame + MCPU_HEADER_LENGTH, frame[2]};
}

}  // namespace vyn::device
