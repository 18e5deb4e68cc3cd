// Multi-byte fields in byte buffers: the device link, firmware files and dump
// files store them little-endian, the bootloader's protocol big-endian. The
// loads work byte by byte, so they are right on any host and at any
// alignment; compilers turn them into single loads where the host allows.
// Internal: not part of the library's interface; usable from every layer,
// the simulators and the tools.
// Thread-safety: pure functions.
#pragma once

#include <cstdint>

namespace vyn {

inline uint16_t LoadLittleEndian16(const unsigned char* p) {
  return static_cast<uint16_t>(p[0] | (p[1] << 8));
}

inline uint32_t LoadLittleEndian32(const unsigned char* p) {
  return static_cast<uint32_t>(p[0]) | (static_cast<uint32_t>(p[1]) << 8) |
         (static_cast<uint32_t>(p[2]) << 16) | (static_cast<uint32_t>(p[3]) << 24);
}

inline void StoreLittleEndian16(unsigned char* p, uint16_t value) {
  p[0] = static_cast<unsigned char>(value);
  p[1] = static_cast<unsigned char>(value >> 8);
}

inline void StoreLittleEndian32(unsigned char* p, uint32_t value) {
  StoreLittleEndian16(p, static_cast<uint16_t>(value));
  StoreLittleEndian16(p + 2, static_cast<uint16_t>(value >> 16));
}

inline uint16_t LoadBigEndian16(const unsigned char* p) {
  return static_cast<uint16_t>((p[0] << 8) | p[1]);
}

inline uint32_t LoadBigEndian32(const unsigned char* p) {
  return (static_cast<uint32_t>(LoadBigEndian16(p)) << 16) | LoadBigEndian16(p + 2);
}

}  // namespace vyn
