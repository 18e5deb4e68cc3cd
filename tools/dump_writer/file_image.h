// The front part of a minidump file (header, directory, streams, contexts,
// strings) built in memory, where every piece gets its offset (RVA) when it
// is added and can be filled in later, once the offsets of what follows it
// are known.
#pragma once

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

namespace vyn::dump_writer {

class FileImage {
 public:
  // Appends `size` zero bytes at the next multiple of `alignment`; returns
  // their offset.
  uint32_t Reserve(size_t size, size_t alignment = 4);
  uint32_t Add(const void* data, size_t size, size_t alignment = 4);
  template <typename T>
  uint32_t AddObject(const T& value, size_t alignment = 4) {
    return Add(&value, sizeof value, alignment);
  }
  // A length-prefixed UTF-16 string, converted from UTF-8 (bytes that are
  // not UTF-8 are taken as Latin-1).
  uint32_t AddString(const std::string& text);

  template <typename T>
  void Put(uint32_t offset, const T& value) {
    std::memcpy(bytes_.data() + offset, &value, sizeof value);
  }

  const std::vector<uint8_t>& bytes() const { return bytes_; }
  size_t size() const { return bytes_.size(); }

 private:
  std::vector<uint8_t> bytes_;
};

}  // namespace vyn::dump_writer
