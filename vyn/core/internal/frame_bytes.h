// The bytes of a device frame as the sending side (command set), the
// receiving side (frame assembler) and the readers of received frames
// (parsers, dump) all see them: multi-byte fields little-endian, IEEE
// floats in their 32-bit pattern, checksums the byte sum mod 256. The
// layout itself is described in vyn/device/frame_format.h.
// Internal: not part of the library's interface.
// Thread-safety: pure functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "vyn/base/internal/byte_order.h"

namespace vyn {

inline float LoadLittleEndianFloat(const unsigned char* p) {
  const uint32_t bits = LoadLittleEndian32(p);
  float value = 0.0F;
  std::memcpy(&value, &bits, sizeof value);
  return value;
}

// Sum of `count` bytes mod 256: the header and payload checksums.
inline unsigned char Sum8(const unsigned char* p, size_t count) {
  unsigned int sum = 0;
  for (size_t i = 0; i < count; ++i) sum += p[i];
  return static_cast<unsigned char>(sum);
}

}  // namespace vyn
