// Device frames written out byte by byte for the tests, with checksums of
// the tests' own, so that a fault in the library's framing cannot hide
// behind the same fault in its test data.
#pragma once

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <initializer_list>
#include <string>
#include <vector>

namespace vyn::test {

using Bytes = std::vector<unsigned char>;

inline unsigned char ByteSum(const unsigned char* bytes, size_t count) {
  unsigned int sum = 0;
  for (size_t i = 0; i < count; ++i) sum += bytes[i];
  return static_cast<unsigned char>(sum & 0xFF);
}

// 'B', id (LE), N (LE), sequence, header sum, payload, payload sum if N > 0.
inline Bytes CcpuFrame(uint16_t id, const Bytes& payload, unsigned char sequence = 1) {
  const size_t n = payload.size();
  // Reserved up front and filled by push_back: g++ 12 at -O3 mistakes the
  // growth of a vector built from an initializer list for an overflow.
  Bytes frame;
  frame.reserve(n + 8);
  for (const unsigned char byte :
       {static_cast<unsigned char>(0x42), static_cast<unsigned char>(id & 0xFF),
        static_cast<unsigned char>(id >> 8), static_cast<unsigned char>(n & 0xFF),
        static_cast<unsigned char>(n >> 8), sequence}) {
    frame.push_back(byte);
  }
  frame.push_back(ByteSum(frame.data() + 1, 5));
  frame.insert(frame.end(), payload.begin(), payload.end());
  if (n > 0) frame.push_back(ByteSum(payload.data(), n));
  return frame;
}

// '>', id, N, header sum, payload, payload sum (0 for an empty payload).
inline Bytes McpuFrame(unsigned char id, const Bytes& payload) {
  const auto n = static_cast<unsigned char>(payload.size());
  Bytes frame;
  frame.reserve(payload.size() + 5);
  for (const unsigned char byte :
       {static_cast<unsigned char>(0x3E), id, n, static_cast<unsigned char>((id + n) & 0xFF)}) {
    frame.push_back(byte);
  }
  frame.insert(frame.end(), payload.begin(), payload.end());
  frame.push_back(ByteSum(payload.data(), payload.size()));
  return frame;
}

// The length a frame's header declares for the whole frame (an MCPU header
// for anything that does not start with 'B').
inline size_t FrameLength(const Bytes& header) {
  if (header.at(0) != 0x42) return header.at(2) + 5u;
  const size_t n = header.at(3) | header.at(4) << 8;
  return n == 0 ? 7 : n + 8;
}

// A complete frame of either layout with both checksums right.
inline bool WellFormed(const Bytes& frame) {
  const bool ccpu = !frame.empty() && frame[0] == 0x42;
  if (frame.size() < (ccpu ? 7u : 5u) || (!ccpu && frame[0] != 0x3E)) return false;
  if (FrameLength(frame) != frame.size()) return false;
  const size_t start = ccpu ? 7 : 4;
  const unsigned char header_sum = ccpu ? ByteSum(&frame[1], 5) : ByteSum(&frame[1], 2);
  return header_sum == frame[start - 1] &&
         ((ccpu && frame.size() == 7) ||
          ByteSum(&frame[start], frame.size() - start - 1) == frame.back());
}

inline Bytes Le16(uint16_t value) {
  return {static_cast<unsigned char>(value & 0xFF), static_cast<unsigned char>(value >> 8)};
}

inline Bytes Le32(uint32_t value) {
  return {static_cast<unsigned char>(value & 0xFF), static_cast<unsigned char>(value >> 8),
          static_cast<unsigned char>(value >> 16), static_cast<unsigned char>(value >> 24)};
}

inline Bytes F32(float value) {
  uint32_t bits = 0;
  std::memcpy(&bits, &value, sizeof bits);
  return Le32(bits);
}

// The characters and the terminating zero.
inline Bytes Text(const std::string& text) {
  Bytes bytes(text.begin(), text.end());
  bytes.push_back(0);
  return bytes;
}

inline Bytes Cat(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// A frame record: the frame, then `fill` up to 1024 bytes.
using Record = std::array<unsigned char, 1024>;
inline Record ToRecord(const Bytes& frame, unsigned char fill = 0) {
  Record record;
  record.fill(fill);
  std::copy_n(frame.begin(), std::min(frame.size(), record.size()), record.begin());
  return record;
}

}  // namespace vyn::test
