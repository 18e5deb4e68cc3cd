// Fuzz target of the firmware file reader. Input: the bytes of a file, read
// through an in-memory CFile. Whatever the bytes, the check must end with one
// of its statuses; a file it accepts must hold its data in full and match
// its CRC by an independent bit-by-bit computation, and its data must
// unscramble and scramble back to themselves. The application data and the
// whole input are also read as version texts.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "vyn/core/status.h"
#include "vyn/firmware/file_header.h"

namespace {

class MemoryFile : public CFile {
 public:
  MemoryFile(const uint8_t* data, size_t size) : data_(data), size_(size) {}

  bool IsOpen() const override { return true; }
  uint32_t Read(void* buffer, uint32_t count) override {
    const size_t n = std::min<size_t>(count, size_ - position_);
    if (n > 0) std::memcpy(buffer, data_ + position_, n);
    position_ += n;
    return static_cast<uint32_t>(n);
  }
  int64_t Seek(int64_t offset, uint32_t from) override {
    const int64_t base = from == begin     ? 0
                         : from == current ? static_cast<int64_t>(position_)
                                           : static_cast<int64_t>(size_);
    if (base + offset < 0) return -1;
    position_ = static_cast<size_t>(std::min<int64_t>(base + offset, static_cast<int64_t>(size_)));
    return static_cast<int64_t>(position_);
  }
  int64_t GetPosition() const override { return static_cast<int64_t>(position_); }
  int64_t GetLength() const override { return static_cast<int64_t>(size_); }

 private:
  const uint8_t* data_;
  size_t size_;
  size_t position_ = 0;
};

uint32_t BitwiseCrc(const uint8_t* data, size_t size) {
  uint32_t reg = 0xFFFFFFFF;
  for (size_t i = 0; i < size; ++i) {
    reg ^= data[i];
    for (int bit = 0; bit < 8; ++bit) reg = (reg >> 1) ^ (0xEDB88320U & (0U - (reg & 1)));
  }
  return reg;
}

uint32_t Field(const uint8_t* p) { return p[0] | p[1] << 8 | p[2] << 16 | uint32_t{p[3]} << 24; }

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  CVYNFileHeader& files = GetVYNFileHeader();
  MemoryFile file(data, size);
  _FILE_HEADER header{};
  const int32_t status = files.ReadFileHeader(&file, &header);
  switch (status) {
    case VYN_STATUS_SUCCESS: {
      if (size < 80 || Field(data) != VYN_FILE_HEADER_MAGIC) std::abort();
      const uint32_t length = Field(data + 8);
      if (header.dwDataLength != length || length > size - 80) std::abort();
      if (BitwiseCrc(data + 80, length) != Field(data + 4)) std::abort();
      std::vector<unsigned char> image(data + 80, data + 80 + length);
      const auto key = static_cast<unsigned char>(header.dwFileType & 0xFF);
      files.DecryptFileA(key, image.data(), length);
      files.DecryptFileA(key, image.data(), length);
      if (length > 0 && std::memcmp(image.data(), data + 80, length) != 0) std::abort();
      break;
    }
    case VYN_STATUS_NOT_FOUND:
      if (size >= 4 && Field(data) == VYN_FILE_HEADER_MAGIC) std::abort();
      break;
    case VYN_STATUS_OPERATION_BROKEN:
      if (size >= 80 && Field(data + 8) <= size - 80) std::abort();
      break;
    case VYN_STATUS_INVALID_CRC:
      if (size < 80 || BitwiseCrc(data + 80, Field(data + 8)) == Field(data + 4)) std::abort();
      break;
    default:
      std::abort();
  }

  std::string application(reinterpret_cast<const char*>(header.abApplicationData),
                          sizeof header.abApplicationData);
  files.GetVersionAsInteger(application.c_str());
  const std::string text(reinterpret_cast<const char*>(data), size);
  files.GetVersionAsInteger(text.c_str());
  return 0;
}
