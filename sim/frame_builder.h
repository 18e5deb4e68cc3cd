// The two frame layouts on the device's serial line, written out the way the
// device's firmware does it. This is deliberately separate from the library's
// frame code: a simulator that borrowed the library's checksums would agree
// with a wrong library.
//
// CCPU frame: 'B', command id (16-bit), payload length N (16-bit), sequence
// number, header checksum over bytes 1..5, N payload bytes, and a payload
// checksum only when N > 0. MCPU frame: '>', command id, N (8-bit), header
// checksum over bytes 1..2, N payload bytes, payload checksum (always). All
// numbers little-endian, all checksums the byte sum mod 256.
//
// Thread-safety: the functions keep no state.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vyn::sim {

inline constexpr uint8_t kCcpuStart = 0x42;
inline constexpr uint8_t kMcpuStart = 0x3E;
inline constexpr size_t kCcpuHeaderSize = 7;
inline constexpr size_t kMcpuHeaderSize = 4;
// The largest CCPU payload whose frame still fits the 1023 bytes that a
// receiver of this line accepts.
inline constexpr size_t kCcpuMaxPayload = 1015;
inline constexpr size_t kMcpuMaxPayload = 255;

uint8_t SumOfBytes(const uint8_t* data, size_t size);

// Payloads above the maximum are cut to it; the device never sends more.
std::vector<uint8_t> BuildCcpuFrame(uint16_t command, uint8_t sequence,
                                    const std::vector<uint8_t>& payload);
std::vector<uint8_t> BuildMcpuFrame(uint8_t command, const std::vector<uint8_t>& payload);

}  // namespace vyn::sim
