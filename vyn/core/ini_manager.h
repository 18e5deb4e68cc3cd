// CVYNIniManager: single values of an INI file. The default file is VYN.ini in
// the directory that was current when the library was loaded; a later change
// of the current directory does not move it.
//
// Ownership: owns its 10240-byte read buffer.
// Problems are logged through the system log, or written to standard error
// while the log is not running; logging happens with no lock held.
// Thread-safety: no lock of its own. GetEntry uses the one shared read
// buffer, so concurrent GetEntry calls may mix their values; read from one
// thread. The INI reader below keeps files parsed (see profile.h).
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vyn/base/export.h"

class VYN_EXPORT CVYNIniManager {
 public:
  // The read buffer's size in bytes: GetEntry returns at most one byte less
  // of a value.
  static constexpr int32_t kReadBufferSize = 10240;

  CVYNIniManager();
  virtual ~CVYNIniManager();
  CVYNIniManager(const CVYNIniManager&) = delete;
  CVYNIniManager& operator=(const CVYNIniManager&) = delete;

  // Reads the value of `key` in `section` into *value. An empty `file_path`
  // means the default file. VYN_STATUS_NOT_FOUND, with *value untouched, when
  // the file, section or key is missing or the value is empty; also when the
  // file is refused (not a regular file, larger than 16 MiB) or cannot be
  // read, which is logged. Values longer than 10239 characters arrive cut to
  // that length, and the cut is logged. A null `value` gives
  // VYN_STATUS_INVALID_PARAMETER.
  int32_t GetEntry(std::string section, std::string key, std::string* value, std::string file_path);
  // Writes key=value, creating file, section and key as needed.
  // VYN_STATUS_UNSPECIFIC_ERROR, and a log entry saying why, when the file
  // cannot be written (also when it is no regular file or would grow beyond
  // 16 MiB).
  int32_t SetEntry(std::string section, std::string key, std::string value, std::string file_path);

  // The default file path fixed at load ("" when the current directory could
  // not be read then).
  const std::string& GetDefaultFilePath() const { return default_file_path_; }

 private:
  std::unique_ptr<char[]> read_buffer_;
  int32_t read_buffer_size_ = kReadBufferSize;
  std::string default_file_path_;
};

// The process's one CVYNIniManager, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNIniManager& GetVYNIniManager();
