#include "vyn/firmware/file_header.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>

#include "vyn/base/internal/byte_order.h"
#include "vyn/core/status.h"
#include "vyn/firmware/internal/crc32.h"
#include "vyn/firmware/internal/key_material.h"

namespace {

using vyn::LoadLittleEndian32;
using vyn::StoreLittleEndian32;

using DataBuffer = std::unique_ptr<unsigned char[]>;

constexpr uint32_t kCrcStart = 0xFFFFFFFF;

void DecodeHeader(const unsigned char* bytes, _FILE_HEADER* header) {
  header->dwMagic = LoadLittleEndian32(bytes);
  header->dwCRC = LoadLittleEndian32(bytes + 4);
  header->dwDataLength = LoadLittleEndian32(bytes + 8);
  header->dwFileType = LoadLittleEndian32(bytes + 12);
  std::memcpy(header->abApplicationData, bytes + 16, sizeof header->abApplicationData);
}

void EncodeHeader(const _FILE_HEADER& header, unsigned char* bytes) {
  StoreLittleEndian32(bytes, header.dwMagic);
  StoreLittleEndian32(bytes + 4, header.dwCRC);
  StoreLittleEndian32(bytes + 8, header.dwDataLength);
  StoreLittleEndian32(bytes + 12, header.dwFileType);
  std::memcpy(bytes + 16, header.abApplicationData, sizeof header.abApplicationData);
}

int32_t Reserve(uint32_t size, DataBuffer* buffer) {
  try {
    // One byte at least, so that an empty image still has a valid pointer.
    *buffer = std::make_unique_for_overwrite<unsigned char[]>(std::max<uint32_t>(size, 1));
  } catch (const std::bad_alloc&) {
    return VYN_STATUS_NO_MEMORY;
  }
  return VYN_STATUS_SUCCESS;
}

// Reads `size` data bytes at the file's position into a new buffer.
int32_t ReadData(CFile& file, uint32_t size, DataBuffer* data) {
  // A file that is plainly too short fails before the buffer is reserved, so
  // a damaged length field cannot ask for gigabytes.
  const int64_t length = file.GetLength();
  const int64_t position = file.GetPosition();
  if (length >= 0 && position >= 0 && length - position < static_cast<int64_t>(size)) {
    return VYN_STATUS_OPERATION_BROKEN;
  }
  const int32_t reserved = Reserve(size, data);
  if (reserved != VYN_STATUS_SUCCESS) return reserved;
  return file.Read(data->get(), size) == size ? VYN_STATUS_SUCCESS : VYN_STATUS_OPERATION_BROKEN;
}

// Reads a firmware file's header and data from the file's position and
// compares the CRC; on success `data` holds the data as stored.
int32_t ReadCheckedFile(CFile& file, _FILE_HEADER* header, DataBuffer* data) {
  unsigned char raw[VYN_FILE_HEADER_SIZE] = {};
  const uint32_t got = file.Read(raw, sizeof raw);
  DecodeHeader(raw, header);
  if (got < 4 || header->dwMagic != VYN_FILE_HEADER_MAGIC) return VYN_STATUS_NOT_FOUND;
  if (got < sizeof raw) return VYN_STATUS_OPERATION_BROKEN;
  const int32_t status = ReadData(file, header->dwDataLength, data);
  if (status != VYN_STATUS_SUCCESS) return status;
  const uint32_t crc = vyn::firmware::Crc32Update(kCrcStart, data->get(), header->dwDataLength);
  return crc == header->dwCRC ? VYN_STATUS_SUCCESS : VYN_STATUS_INVALID_CRC;
}

// The data part of a file that may or may not have a header: reads the first
// 80 bytes and leaves the position at the start of the data.
int32_t FindData(CFile& file, bool* had_header, uint32_t* data_length) {
  const int64_t total = file.GetLength();
  if (total < 0) return VYN_STATUS_FILE_ERROR;
  unsigned char first[VYN_FILE_HEADER_SIZE];
  const uint32_t got = file.Read(first, sizeof first);
  *had_header = got >= 4 && LoadLittleEndian32(first) == VYN_FILE_HEADER_MAGIC;
  // The magic number announces a header that must be there in full.
  if (*had_header && got < sizeof first) return VYN_STATUS_OPERATION_BROKEN;
  if (!*had_header && file.Seek(0, CFile::begin) != 0) return VYN_STATUS_FILE_ERROR;
  const int64_t length = total - (*had_header ? VYN_FILE_HEADER_SIZE : 0);
  // dwDataLength cannot describe more.
  if (length > static_cast<int64_t>(UINT32_MAX)) return VYN_STATUS_NO_MEMORY;
  *data_length = static_cast<uint32_t>(length);
  return VYN_STATUS_SUCCESS;
}

// Reads the data of a file with or without a header (from its start) and
// fills in the header's magic and data length for it.
int32_t ReadPlainData(CFile& file, _FILE_HEADER* header, bool* had_header, DataBuffer* data) {
  uint32_t data_length = 0;
  const int32_t status = FindData(file, had_header, &data_length);
  if (status != VYN_STATUS_SUCCESS) return status;
  header->dwMagic = VYN_FILE_HEADER_MAGIC;
  header->dwDataLength = data_length;
  return ReadData(file, data_length, data);
}

int32_t WriteFile(CFile& file, const _FILE_HEADER& header, const unsigned char* data,
                  uint32_t data_length) {
  unsigned char raw[VYN_FILE_HEADER_SIZE];
  EncodeHeader(header, raw);
  if (!file.Write(raw, sizeof raw)) return VYN_STATUS_FILE_ERROR;
  if (data != nullptr && !file.Write(data, data_length)) return VYN_STATUS_FILE_ERROR;
  return VYN_STATUS_SUCCESS;
}

}  // namespace

CVYNFileHeader::CVYNFileHeader() = default;

CVYNFileHeader::~CVYNFileHeader() = default;

int32_t CVYNFileHeader::ReadFileHeader(std::string file_name, _FILE_HEADER* header) {
  CFile file;
  if (!file.Open(file_name, CFile::modeRead)) return VYN_STATUS_FILE_ERROR;
  return ReadFileHeader(&file, header);
}

int32_t CVYNFileHeader::ReadFileHeader(CFile* file, _FILE_HEADER* header) {
  if (file == nullptr || !file->IsOpen()) return VYN_STATUS_FILE_ERROR;
  if (header == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  DataBuffer data;
  return ReadCheckedFile(*file, header, &data);
}

int32_t CVYNFileHeader::CreateNewFile(std::string source_file_name,
                                      std::string destination_file_name, _FILE_HEADER* header) {
  if (header == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  CFile source;
  if (!source.Open(source_file_name, CFile::modeRead)) return VYN_STATUS_FILE_ERROR;
  bool had_header = false;
  DataBuffer data;
  const int32_t status = ReadPlainData(source, header, &had_header, &data);
  if (status != VYN_STATUS_SUCCESS) return status;
  source.Close();
  const uint32_t data_length = header->dwDataLength;
  EncryptFileA(static_cast<unsigned char>(header->dwFileType & 0xFF), data.get(), data_length);
  header->dwCRC = CRC32Calculate(data.get(), data_length, kCrcStart);

  CFile destination;
  if (!destination.Open(destination_file_name, CFile::modeCreate | CFile::modeWrite)) {
    return VYN_STATUS_FILE_ERROR;
  }
  return WriteFile(destination, *header, data.get(), data_length);
}

int32_t CVYNFileHeader::UpdateExistingFile(std::string file_name, _FILE_HEADER* header) {
  if (header == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  CFile file;
  if (!file.Open(file_name, CFile::modeReadWrite)) return VYN_STATUS_FILE_ERROR;
  bool had_header = false;
  DataBuffer data;
  const int32_t status = ReadPlainData(file, header, &had_header, &data);
  if (status != VYN_STATUS_SUCCESS) return status;
  const uint32_t data_length = header->dwDataLength;
  header->dwCRC = CRC32Calculate(data.get(), data_length, kCrcStart);

  if (file.Seek(0, CFile::begin) != 0) return VYN_STATUS_FILE_ERROR;
  // Without a header before, the old content moves behind the new one.
  return WriteFile(file, *header, had_header ? nullptr : data.get(), data_length);
}

int32_t CVYNFileHeader::DecryptFileA(std::string source_file_name,
                                     std::string destination_file_name) {
  CFile source;
  if (!source.Open(source_file_name, CFile::modeRead)) return VYN_STATUS_FILE_ERROR;
  _FILE_HEADER header{};
  DataBuffer data;
  const int32_t status = ReadCheckedFile(source, &header, &data);
  if (status != VYN_STATUS_SUCCESS) return status;
  source.Close();
  DecryptFileA(static_cast<unsigned char>(header.dwFileType & 0xFF), data.get(),
               header.dwDataLength);

  CFile destination;
  if (!destination.Open(destination_file_name, CFile::modeCreate | CFile::modeWrite) ||
      !destination.Write(data.get(), header.dwDataLength)) {
    return VYN_STATUS_FILE_ERROR;
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNFileHeader::DecryptFileA(unsigned char key, unsigned char* data, uint32_t length) {
  return EncryptFileA(key, data, length);
}

int32_t CVYNFileHeader::EncryptFileA(unsigned char key, unsigned char* data, uint32_t length) {
  using vyn::firmware::kKeyStartOffsets;
  using vyn::firmware::kKeyStream;
  using vyn::firmware::kKeyStreamSize;
  if (key == 0 || key > vyn::firmware::kKeyCount || data == nullptr) return VYN_STATUS_SUCCESS;
  size_t position = kKeyStartOffsets[key - 1];
  uint32_t done = 0;
  // In runs up to the end of the key stream, which then starts over.
  while (done < length) {
    const uint32_t run =
        static_cast<uint32_t>(std::min<size_t>(length - done, kKeyStreamSize - position));
    for (uint32_t i = 0; i < run; ++i) data[done + i] ^= kKeyStream[position + i];
    done += run;
    position = 0;
  }
  return VYN_STATUS_SUCCESS;
}

uint32_t CVYNFileHeader::CRC32Calculate(unsigned char* data, uint32_t length, uint32_t start) {
  if (data == nullptr) return start;
  return vyn::firmware::Crc32Update(start, data, length);
}

std::string CVYNFileHeader::GetFileTypeAsString(uint32_t file_type) {
  static const char* const kNames[] = {"CCPU Remote", "CCPU Head", "KCPU", "LCPU", "MCPU", "ECPU"};
  if (file_type < 1 || file_type > sizeof kNames / sizeof kNames[0]) return "?";
  return kNames[file_type - 1];
}

namespace {

// A decimal number in at most two characters from `at`, read as a C
// library conversion would: blanks skipped, an optional sign, then digits.
int32_t ReadTwoCharacterField(const char* text, size_t text_length, size_t at) {
  if (at >= text_length) return 0;
  const size_t end = std::min(text_length, at + 2);
  size_t i = at;
  while (i < end && (text[i] == ' ' || (text[i] >= '\t' && text[i] <= '\r'))) ++i;
  bool negative = false;
  if (i < end && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  int32_t value = 0;
  while (i < end && text[i] >= '0' && text[i] <= '9') value = value * 10 + (text[i++] - '0');
  return negative ? -value : value;
}

}  // namespace

int32_t CVYNFileHeader::GetVersionAsInteger(const char* text) {
  if (text == nullptr) return 0;
  const size_t length = std::strlen(text);
  if (length < 7) return 0;
  const char* digit =
      std::find_if(text, text + length, [](char c) { return c >= '0' && c <= '9'; });
  if (digit == text + length) return 0;
  const size_t p = static_cast<size_t>(digit - text);
  const int32_t major = ReadTwoCharacterField(text, length, p);
  const int32_t minor = ReadTwoCharacterField(text, length, p + 3);
  const int32_t patch = length >= 10 ? ReadTwoCharacterField(text, length, p + 6) : 0;
  return major * 65536 + minor * 256 + patch;
}
