// A regular file opened for reading and writing at positions the caller
// chooses (firmware files and the images made from them).
//
// Only regular files are opened: a directory, a FIFO or a device is refused,
// so that a wrong name can neither block the caller (a FIFO without a
// writer) nor feed it endless data (a character device). The check is made
// without blocking. Descriptors are opened close-on-exec.
//
// Ownership: the object owns its descriptor and closes it.
// Thread-safety: none; one thread uses an object at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

#include "vyn/platform/scoped_descriptor.h"

namespace vyn::platform {

enum class FileOpenMode {
  kRead,            // an existing file, for reading
  kWrite,           // an existing file, for writing
  kReadWrite,       // an existing file, for reading and writing
  kCreate,          // created, or emptied when it exists, for writing
  kCreateKeep,      // created when missing, kept as it is otherwise, for writing
  kCreateReadWrite  // as kCreate, for reading and writing
};

enum class SeekOrigin { kBegin, kCurrent, kEnd };

class RandomAccessFile {
 public:
  RandomAccessFile() = default;
  ~RandomAccessFile();
  RandomAccessFile(const RandomAccessFile&) = delete;
  RandomAccessFile& operator=(const RandomAccessFile&) = delete;

  // Closes a file held before. False (and closed) on failure; last_error()
  // tells why (EISDIR for a directory, EINVAL for anything else that is not a
  // regular file).
  [[nodiscard]] bool Open(const std::string& path, FileOpenMode mode);
  void Close();
  bool IsOpen() const { return descriptor_.IsValid(); }

  // Reads until `size` bytes have come or the file ends; returns the count,
  // or -1 on an error (with no count of what came before it).
  int64_t Read(void* buffer, size_t size);
  // Writes all `size` bytes; false on an error (a full disk, among others).
  [[nodiscard]] bool WriteAll(const void* data, size_t size);
  // The new position, or -1.
  int64_t Seek(int64_t offset, SeekOrigin origin);
  int64_t Position() const;
  // The file's length, or -1.
  int64_t Length() const;

  // errno of the last failure.
  int last_error() const { return last_error_; }

 private:
  ScopedDescriptor descriptor_;
  mutable int last_error_ = 0;
};

}  // namespace vyn::platform
