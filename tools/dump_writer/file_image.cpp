#include "tools/dump_writer/file_image.h"

namespace vyn::dump_writer {
namespace {

std::vector<uint16_t> ToUtf16(const std::string& text) {
  std::vector<uint16_t> units;
  size_t at = 0;
  while (at < text.size()) {
    const auto lead = static_cast<unsigned char>(text[at]);
    uint32_t code = lead;
    size_t length = 1;
    if (lead >= 0xC0 && lead < 0xF8) {
      length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
      code = lead & (0x3F >> (length - 1));
      for (size_t i = 1; i < length; ++i) {
        const auto next = at + i < text.size() ? static_cast<unsigned char>(text[at + i]) : 0;
        if ((next & 0xC0) != 0x80) {
          length = 1;
          code = lead;
          break;
        }
        code = (code << 6) | (next & 0x3F);
      }
    }
    at += length;
    if (code >= 0x10000) {
      code -= 0x10000;
      units.push_back(static_cast<uint16_t>(0xD800 | (code >> 10)));
      units.push_back(static_cast<uint16_t>(0xDC00 | (code & 0x3FF)));
    } else {
      units.push_back(static_cast<uint16_t>(code));
    }
  }
  return units;
}

}  // namespace

uint32_t FileImage::Reserve(size_t size, size_t alignment) {
  const size_t offset = (bytes_.size() + alignment - 1) / alignment * alignment;
  bytes_.resize(offset + size, 0);
  return static_cast<uint32_t>(offset);
}

uint32_t FileImage::Add(const void* data, size_t size, size_t alignment) {
  const uint32_t offset = Reserve(size, alignment);
  if (size != 0) std::memcpy(bytes_.data() + offset, data, size);
  return offset;
}

uint32_t FileImage::AddString(const std::string& text) {
  const std::vector<uint16_t> units = ToUtf16(text);
  const auto length = static_cast<uint32_t>(units.size() * sizeof(uint16_t));
  const uint32_t offset = Reserve(sizeof length + length + sizeof(uint16_t));
  Put(offset, length);
  if (length != 0) std::memcpy(bytes_.data() + offset + sizeof length, units.data(), length);
  return offset;
}

}  // namespace vyn::dump_writer
