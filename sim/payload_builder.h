// Appends the little-endian fields of a frame payload, in the device's order.
// Thread-safety: none; a builder is a local value.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace vyn::sim {

class PayloadBuilder {
 public:
  // Room for every payload the device sends without growing.
  PayloadBuilder() { bytes_.reserve(256); }

  PayloadBuilder& Byte(uint8_t value) {
    bytes_.push_back(value);
    return *this;
  }
  PayloadBuilder& U16(uint16_t value) { return Byte(value & 0xFF).Byte(value >> 8); }
  PayloadBuilder& I16(int16_t value) { return U16(static_cast<uint16_t>(value)); }
  PayloadBuilder& U32(uint32_t value) { return U16(value & 0xFFFF).U16(value >> 16); }
  PayloadBuilder& Float(float value) {
    uint32_t bits;
    static_assert(sizeof bits == sizeof value);
    std::memcpy(&bits, &value, sizeof bits);
    return U32(bits);
  }
  // The characters and the terminating zero byte.
  PayloadBuilder& Text(const std::string& text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return Byte(0);
  }
  // The characters only, as free-form texts at the end of a payload travel.
  PayloadBuilder& Characters(const std::string& text) {
    bytes_.insert(bytes_.end(), text.begin(), text.end());
    return *this;
  }
  // Pads with zero bytes up to `size` (nothing when already that long).
  PayloadBuilder& PadTo(size_t size) {
    if (bytes_.size() < size) bytes_.resize(size, 0);
    return *this;
  }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace vyn::sim
