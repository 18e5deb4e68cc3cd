// CVYNFileHeader: firmware files. A firmware file is an 80-byte header (the
// _FILE_HEADER below, little-endian on disk) followed by dwDataLength bytes
// of image, scrambled with the key in the low byte of dwFileType (1 to 6;
// other keys leave the data as they are). Bytes after the data are ignored.
//
// The service makes firmware files from plain images, gives an existing file
// a header, checks a file (magic number, length and CRC) and turns it back
// into a plain image.
//
// The CRC: the reflected CRC-32 of zlib and IEEE 802.3 over the data bytes as
// they lie in the file, started at 0xFFFFFFFF and stored without the final
// inversion (the bitwise complement of the usual value).
//
// Results: VYN_STATUS_SUCCESS, or
// - VYN_STATUS_FILE_ERROR: a file cannot be opened, created or written (a
//   directory, a FIFO or a device counts as a file that cannot be opened);
// - VYN_STATUS_NOT_FOUND: the file does not begin with the magic number;
// - VYN_STATUS_OPERATION_BROKEN: the file ends before its header or before
//   dwDataLength bytes of data;
// - VYN_STATUS_NO_MEMORY: the data do not fit into memory (or a source is too
//   long for dwDataLength);
// - VYN_STATUS_INVALID_CRC: the data do not match dwCRC.
// Nothing is logged. Files are closed and buffers released on every path; a
// destination created before a later failure stays.
//
// Ownership: headers and buffers belong to the caller.
// Thread-safety: no state; any thread may call any operation. Two calls on
// the same file at once are not coordinated.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/export.h"
#include "vyn/core/framework_file.h"

// The first four bytes of every firmware file, and the header's size in
// bytes.
constexpr uint32_t VYN_FILE_HEADER_MAGIC = 0x19860322;
constexpr uint32_t VYN_FILE_HEADER_SIZE = 80;

// File types: the processor an image is for.
constexpr uint32_t VYN_FILE_TYPE_CCPU_REMOTE = 1;
constexpr uint32_t VYN_FILE_TYPE_CCPU_HEAD = 2;
constexpr uint32_t VYN_FILE_TYPE_KCPU = 3;
constexpr uint32_t VYN_FILE_TYPE_LCPU = 4;
constexpr uint32_t VYN_FILE_TYPE_MCPU = 5;
constexpr uint32_t VYN_FILE_TYPE_ECPU = 6;

// The header at the start of a firmware file, in file order.
struct _FILE_HEADER {
  uint32_t dwMagic;       // VYN_FILE_HEADER_MAGIC
  uint32_t dwCRC;         // CRC of the data as they lie in the file (see above)
  uint32_t dwDataLength;  // data bytes after the header
  uint32_t dwFileType;    // a VYN_FILE_TYPE_ value; its low byte is the scrambling key
  // The creating application's own bytes; copied, never read.
  unsigned char abApplicationData[64];
};
static_assert(sizeof(_FILE_HEADER) == VYN_FILE_HEADER_SIZE);

class VYN_EXPORT CVYNFileHeader {
 public:
  CVYNFileHeader();
  virtual ~CVYNFileHeader();
  CVYNFileHeader(const CVYNFileHeader&) = delete;
  CVYNFileHeader& operator=(const CVYNFileHeader&) = delete;

  // Checks the named file as the next operation does.
  int32_t ReadFileHeader(std::string file_name, _FILE_HEADER* header);
  // Checks an open file from its current position: reads the header into
  // `header` (a file of fewer than 80 bytes leaves the rest zero), then the
  // data, and compares the CRC. The position is left behind what was read.
  // No file: VYN_STATUS_FILE_ERROR; no header: VYN_STATUS_INVALID_PARAMETER.
  int32_t ReadFileHeader(CFile* file, _FILE_HEADER* header);
  // Makes a firmware file from a plain image. The caller fills dwFileType and
  // abApplicationData; dwMagic, dwDataLength and dwCRC are set here and stay
  // set when a later step fails. A source that is a firmware file already
  // (it begins with the magic number) loses its header and has its data
  // scrambled once more. Source and destination may be the same file.
  int32_t CreateNewFile(std::string source_file_name, std::string destination_file_name,
                        _FILE_HEADER* header);
  // Gives a file a header in place, scrambling nothing: a file without one
  // grows by 80 bytes, a file with one gets its header replaced.
  int32_t UpdateExistingFile(std::string file_name, _FILE_HEADER* header);
  // Checks a firmware file and writes its unscrambled data, without header,
  // to the destination (created, or emptied when it exists).
  int32_t DecryptFileA(std::string source_file_name, std::string destination_file_name);
  // Unscrambles `length` bytes in place with `key`; always
  // VYN_STATUS_SUCCESS (key 0 or above 6, no data or length 0: unchanged).
  int32_t DecryptFileA(unsigned char key, unsigned char* data, uint32_t length);

  // "CCPU Remote", "CCPU Head", "KCPU", "LCPU", "MCPU", "ECPU" for 1 to 6,
  // "?" for any other type.
  std::string GetFileTypeAsString(uint32_t file_type);
  // Reads "V 01.02.03" as 0x00010203: major, minor and patch are the two
  // characters at 0, 3 and 6 places behind the first digit (patch only in a
  // text of 10 characters or more), each read as a decimal number. 0 for no
  // text, a text below 7 characters or one without a digit. Fields reaching
  // past the end of the text are read only up to it.
  int32_t GetVersionAsInteger(const char* text);

 protected:
  // Scrambles in place; the same operation as the buffer form of
  // DecryptFileA, since scrambling twice restores the data.
  int32_t EncryptFileA(unsigned char key, unsigned char* data, uint32_t length);
  // The CRC register after `length` bytes, run from `start`.
  uint32_t CRC32Calculate(unsigned char* data, uint32_t length, uint32_t start);
};

// The process's one CVYNFileHeader, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNFileHeader& GetVYNFileHeader();
