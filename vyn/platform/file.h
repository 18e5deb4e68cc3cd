// Files that the services write (the system log's CSV files).
//
// A File owns one open descriptor and closes it when it goes away. Every
// descriptor is opened close-on-exec, so a program that the application
// starts never inherits a log file. New files are created exclusively: an
// existing file is never emptied or appended to by CreateNew.
//
// Ownership: the object owns its descriptor; movable, not copyable.
// Thread-safety: one File belongs to one thread at a time.
#pragma once

#include <cstddef>
#include <string>

#include "vyn/platform/scoped_descriptor.h"

namespace vyn::platform {

enum class FileCreateResult {
  kCreated,
  kExists,  // a file (or anything else) of that name is already there
  kFailed,  // any other reason; GetLastErrorText says which
};

class File {
 public:
  File() = default;
  ~File();
  File(File&& other) noexcept;
  File& operator=(File&& other) noexcept;
  File(const File&) = delete;
  File& operator=(const File&) = delete;

  // Creates `path` for writing only (permissions 0666 less the umask). Closes
  // a file this object still holds first.
  [[nodiscard]] FileCreateResult CreateNew(const std::string& path);
  // Opens an existing file or device for writing only, without creating it.
  [[nodiscard]] bool OpenForWriting(const std::string& path);
  bool IsOpen() const { return descriptor_.IsValid(); }

  // Writes all `size` bytes, resuming after signals and short writes. On a
  // failure returns false; `*written` (when given) always tells how many of
  // the bytes were written.
  [[nodiscard]] bool WriteAll(const void* data, size_t size, size_t* written);
  // Hands the written data on to the storage device (not only to the
  // operating system's cache).
  bool DataSync();
  // Cuts the file back to `length` bytes (a write that stopped inside a
  // line leaves no half of it behind).
  bool Truncate(long long length);
  void Close();

  // The reason of the last failure, for diagnostics.
  std::string GetLastErrorText() const;

 private:
  ScopedDescriptor descriptor_;
  int last_error_ = 0;
};

// Removes the file `path`; false (and the file stays) when that fails.
bool RemoveFile(const std::string& path);

}  // namespace vyn::platform
