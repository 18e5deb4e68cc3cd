// CFile: a binary file that the library's file operations read and write
// (firmware files, through CVYNFileHeader). An application hands an open
// CFile to the operations that check a file from its current position.
//
// Only regular files open: a directory, a FIFO or a device is refused at
// once, without blocking. The operations are virtual, so an application may
// pass a file of its own making (one held in memory, say) where a CFile is
// taken.
//
// Errors: Open reports failure by its result and, when asked, the system's
// error number; nothing throws. Read gives fewer bytes at the end of the file
// and 0 on an error; Write and the positioning operations report failure by
// their results.
//
// Ownership: the object owns the open file and closes it on Close or
// destruction.
// Thread-safety: none; one thread uses an object at a time.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vyn/base/export.h"

namespace vyn::platform {
class RandomAccessFile;
}

class VYN_EXPORT CFile {
 public:
  // Open flags; combine one access mode with the creation flags.
  enum OpenFlags : uint32_t {
    modeRead = 0x0000,        // an existing file, for reading
    modeWrite = 0x0001,       // for writing
    modeReadWrite = 0x0002,   // for reading and writing
    modeCreate = 0x1000,      // created, emptied when it exists
    modeNoTruncate = 0x2000,  // with modeCreate: an existing file keeps its content
    typeBinary = 0x8000,      // every file is binary; accepted for clarity
  };
  // Where Seek counts its offset from: the file's start, the current
  // position, or the file's end.
  enum SeekPosition : uint32_t { begin = 0, current = 1, end = 2 };

  CFile();
  virtual ~CFile();
  CFile(const CFile&) = delete;
  CFile& operator=(const CFile&) = delete;

  // Opens `file_name`, closing a file held before. modeCreate without
  // modeWrite or modeReadWrite opens for writing. False on failure, with the
  // system's error number in `error` when given.
  virtual bool Open(std::string file_name, uint32_t open_flags, int* error = nullptr);
  // Closes the file if one is open; harmless when none is.
  virtual void Close();
  // True between a successful Open and Close.
  virtual bool IsOpen() const;

  // Reads up to `count` bytes at the current position and returns how many
  // came: fewer at the end of the file, 0 when closed or on an error.
  virtual uint32_t Read(void* buffer, uint32_t count);
  // Writes all `count` bytes; false when closed or on an error.
  virtual bool Write(const void* buffer, uint32_t count);
  // Moves the position by `offset` from `from` (a SeekPosition); the new
  // position, or -1.
  virtual int64_t Seek(int64_t offset, uint32_t from);
  // The current position, or -1.
  virtual int64_t GetPosition() const;
  // The length in bytes, or -1.
  virtual int64_t GetLength() const;

  // Moves to the start of the file.
  void SeekToBegin() { Seek(0, begin); }
  // Moves to the end of the file, for appending; the new position (the
  // length), or -1.
  int64_t SeekToEnd() { return Seek(0, end); }

 private:
  std::unique_ptr<vyn::platform::RandomAccessFile> file_;
};
