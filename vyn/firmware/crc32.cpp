#include "vyn/firmware/internal/crc32.h"

#include <array>

#include "vyn/base/internal/byte_order.h"

namespace vyn::firmware {
namespace {

constexpr uint32_t kPolynomial = 0xEDB88320;

// kTables[0] is the classic byte table; kTables[k][n] is the register that
// byte n leaves behind after k further zero bytes, so eight bytes are folded
// in with eight independent look-ups instead of eight dependent ones.
using SliceTables = std::array<std::array<uint32_t, 256>, 8>;

constexpr SliceTables MakeTables() {
  SliceTables tables{};
  for (uint32_t n = 0; n < 256; ++n) {
    uint32_t reg = n;
    for (int bit = 0; bit < 8; ++bit) reg = (reg & 1) != 0 ? (reg >> 1) ^ kPolynomial : reg >> 1;
    tables[0][n] = reg;
  }
  for (size_t k = 1; k < tables.size(); ++k) {
    for (uint32_t n = 0; n < 256; ++n) {
      const uint32_t previous = tables[k - 1][n];
      tables[k][n] = (previous >> 8) ^ tables[0][previous & 0xFF];
    }
  }
  return tables;
}

constexpr SliceTables kTables = MakeTables();

using UpdateFunction = uint32_t (*)(uint32_t, const unsigned char*, size_t);

UpdateFunction ChooseUpdate() {
  return Crc32FoldingAvailable() ? &Crc32UpdateFolded : &Crc32UpdatePortable;
}

}  // namespace

uint32_t Crc32UpdatePortable(uint32_t reg, const unsigned char* data, size_t size) {
  while (size >= 8) {
    const uint32_t one = LoadLittleEndian32(data) ^ reg;
    const uint32_t two = LoadLittleEndian32(data + 4);
    reg = kTables[7][one & 0xFF] ^ kTables[6][(one >> 8) & 0xFF] ^ kTables[5][(one >> 16) & 0xFF] ^
          kTables[4][one >> 24] ^ kTables[3][two & 0xFF] ^ kTables[2][(two >> 8) & 0xFF] ^
          kTables[1][(two >> 16) & 0xFF] ^ kTables[0][two >> 24];
    data += 8;
    size -= 8;
  }
  while (size > 0) {
    reg = kTables[0][(reg ^ *data) & 0xFF] ^ (reg >> 8);
    ++data;
    --size;
  }
  return reg;
}

uint32_t Crc32Update(uint32_t reg, const unsigned char* data, size_t size) {
  static const UpdateFunction update = ChooseUpdate();
  return update(reg, data, size);
}

}  // namespace vyn::firmware
