// CRC-32 by folding: the message is taken 128 bits at a time, and a block is
// carried forward onto a later one by two carry-less multiplications with
// x^n mod P, which keeps the register's value while the work per block stays
// independent of the register. Four blocks are carried at once (512 bits
// apart) so the multiplier's latency is hidden; what remains after folding,
// 128 bits and a tail, is finished by the table form.
//
// Bit order: the CRC is reflected, so bit 0 of a loaded 128-bit block is the
// coefficient of its highest power of x. A carry-less product of two 64-bit
// halves in that order comes out one place lower than the 128-bit order, so
// the constants carry one power of x less than the distance they fold over.
#include "vyn/firmware/internal/crc32.h"

#if defined(__x86_64__) || defined(__i386__)
#include <immintrin.h>
#endif

namespace vyn::firmware {

#if defined(__x86_64__) || defined(__i386__)

namespace {

// x^n mod P in plain bit order (bit j is the coefficient of x^j).
constexpr uint32_t XPowerModP(unsigned n) {
  uint32_t remainder = 1;
  for (unsigned i = 0; i < n; ++i) {
    remainder = (remainder & 0x80000000U) != 0 ? (remainder << 1) ^ 0x04C11DB7U : remainder << 1;
  }
  return remainder;
}

// A polynomial of degree below 32 as the left factor of a carry-less
// product in reflected order: the coefficient of x^j goes to bit 63 - j.
constexpr uint64_t Reflected64(uint32_t polynomial) {
  uint64_t out = 0;
  for (int j = 0; j < 32; ++j) {
    if (((polynomial >> j) & 1) != 0) out |= uint64_t{1} << (63 - j);
  }
  return out;
}

// The pair that carries a block `distance` bits forward: the low half of
// the block (its higher powers) is multiplied by x^(distance + 64 - 1), the
// high half by x^(distance - 1).
struct FoldConstants {
  long long low;
  long long high;
};

constexpr FoldConstants MakeFoldConstants(unsigned distance) {
  return {static_cast<long long>(Reflected64(XPowerModP(distance + 63))),
          static_cast<long long>(Reflected64(XPowerModP(distance - 1)))};
}

constexpr FoldConstants kFold512 = MakeFoldConstants(512);
constexpr FoldConstants kFold128 = MakeFoldConstants(128);

__attribute__((target("pclmul,sse2"))) inline __m128i Fold(__m128i block, __m128i constants,
                                                           __m128i onto) {
  const __m128i low = _mm_clmulepi64_si128(block, constants, 0x00);
  const __m128i high = _mm_clmulepi64_si128(block, constants, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), onto);
}

__attribute__((target("pclmul,sse2"))) inline __m128i Load(const unsigned char* data) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(data));
}

}  // namespace

bool Crc32FoldingAvailable() {
  __builtin_cpu_init();
  return __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse2");
}

__attribute__((target("pclmul,sse2"))) uint32_t Crc32UpdateFolded(uint32_t reg,
                                                                  const unsigned char* data,
                                                                  size_t size) {
  // Below a few blocks the set-up costs more than the tables.
  if (size < 128) return Crc32UpdatePortable(reg, data, size);

  __m128i x0 = Load(data);
  __m128i x1 = Load(data + 16);
  __m128i x2 = Load(data + 32);
  __m128i x3 = Load(data + 48);
  // The start value is the register before the first bits, that is, it
  // adds onto the first 32 bits of the message.
  x0 = _mm_xor_si128(x0, _mm_cvtsi32_si128(static_cast<int>(reg)));
  data += 64;
  size -= 64;

  const __m128i fold512 = _mm_set_epi64x(kFold512.high, kFold512.low);
  while (size >= 64) {
    x0 = Fold(x0, fold512, Load(data));
    x1 = Fold(x1, fold512, Load(data + 16));
    x2 = Fold(x2, fold512, Load(data + 32));
    x3 = Fold(x3, fold512, Load(data + 48));
    data += 64;
    size -= 64;
  }

  const __m128i fold128 = _mm_set_epi64x(kFold128.high, kFold128.low);
  x1 = Fold(x0, fold128, x1);
  x2 = Fold(x1, fold128, x2);
  x3 = Fold(x2, fold128, x3);
  while (size >= 16) {
    x3 = Fold(x3, fold128, Load(data));
    data += 16;
    size -= 16;
  }

  // The table form run from 0 over the folded block gives its remainder
  // times x^32, which is the register after it.
  alignas(16) unsigned char folded[16];
  _mm_store_si128(reinterpret_cast<__m128i*>(folded), x3);
  return Crc32UpdatePortable(Crc32UpdatePortable(0, folded, sizeof folded), data, size);
}

#else

bool Crc32FoldingAvailable() { return false; }

uint32_t Crc32UpdateFolded(uint32_t reg, const unsigned char* data, size_t size) {
  return Crc32UpdatePortable(reg, data, size);
}

#endif

}  // namespace vyn::firmware
