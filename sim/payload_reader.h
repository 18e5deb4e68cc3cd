// Reads the little-endian fields of a request payload front to back. Every
// read checks that the field is there; a failed read leaves the position
// where it was, so the caller can tell a short payload from a wrong value.
// Thread-safety: none; a reader is a local value over a payload it does not own.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace vyn::sim {

class PayloadReader {
 public:
  explicit PayloadReader(const std::vector<uint8_t>& payload) : payload_(payload) {}

  bool Byte(uint8_t* value) {
    if (remaining() < 1) return false;
    *value = payload_[position_++];
    return true;
  }
  bool U16(uint16_t* value) {
    if (remaining() < 2) return false;
    *value = static_cast<uint16_t>(payload_[position_] | payload_[position_ + 1] << 8);
    position_ += 2;
    return true;
  }
  bool U32(uint32_t* value) {
    uint16_t low = 0;
    uint16_t high = 0;
    if (remaining() < 4) return false;
    U16(&low);
    U16(&high);
    *value = static_cast<uint32_t>(high) << 16 | low;
    return true;
  }
  bool Float(float* value) {
    uint32_t bits = 0;
    if (!U32(&bits)) return false;
    std::memcpy(value, &bits, sizeof bits);
    return true;
  }
  // A text up to and including its terminating zero; false when no zero follows.
  bool Text(std::string* text) {
    for (size_t end = position_; end < payload_.size(); ++end) {
      if (payload_[end] == 0) {
        text->assign(payload_.begin() + static_cast<long>(position_),
                     payload_.begin() + static_cast<long>(end));
        position_ = end + 1;
        return true;
      }
    }
    return false;
  }
  size_t remaining() const { return payload_.size() - position_; }

 private:
  const std::vector<uint8_t>& payload_;
  size_t position_ = 0;
};

}  // namespace vyn::sim
