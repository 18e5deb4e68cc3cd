// The CRC register of firmware files: the reflected CRC-32 of polynomial
// 0xEDB88320 (the one of IEEE 802.3 and zlib), run from a start value the
// caller gives and returned without the final inversion.
//
// Two implementations compute the same register: slicing-by-8 tables, which
// run everywhere, and folding with carry-less multiplication for processors
// that have it (x86 PCLMULQDQ). Crc32Update picks the faster one available on
// the running processor once, on its first call.
//
// Thread-safety: pure functions over constant tables; callable from any
// thread.
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyn::firmware {

// The register after `size` bytes of `data`, started at `reg`. A size of 0
// returns `reg` unchanged; `data` may then be null.
uint32_t Crc32Update(uint32_t reg, const unsigned char* data, size_t size);

// The portable slicing-by-8 form.
uint32_t Crc32UpdatePortable(uint32_t reg, const unsigned char* data, size_t size);

// True when this processor can run Crc32UpdateFolded.
bool Crc32FoldingAvailable();
// The carry-less multiplication form; call only when Crc32FoldingAvailable().
// Short inputs are handed to the portable form.
uint32_t Crc32UpdateFolded(uint32_t reg, const unsigned char* data, size_t size);

}  // namespace vyn::firmware
