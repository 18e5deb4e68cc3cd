// CVYNIniManager: single values of an INI file. The default file is VYN.ini in
// the directory that was current when the library was loaded; a later change
// of the current directory does not move it.
//
// Ownership: owns its 10240-byte read buffer.
// Thread-safety: no lock. GetEntry uses the one shared read buffer, so
// concurrent GetEntry calls may mix their values; read from one thread.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "vyn/base/export.h"

class VYN_EXPORT CVYNIniManager {
 public:
  static constexpr int32_t kReadBufferSize = 10240;

  CVYNIniManager();
  virtual ~CVYNIniManager();
  CVYNIniManager(const CVYNIniManager&) = delete;
  CVYNIniManager& operator=(const CVYNIniManager&) = delete;

  // Reads the value of `key` in `section` into *value. An empty `file_path`
  // means the default file. VYN_STATUS_NOT_FOUND, with *value untouched, when
  // the file, section or key is missing or the value is empty; values longer
  // than 10239 characters arrive cut to that length. A null `value` gives
  // VYN_STATUS_INVALID_PARAMETER.
  int32_t GetEntry(std::string section, std::string key, std::string* value, std::string file_path);
  // Writes key=value, creating file, section and key as needed.
  // VYN_STATUS_UNSPECIFIC_ERROR when the file cannot be written.
  int32_t SetEntry(std::string section, std::string key, std::string value, std::string file_path);

  // The default file path fixed at load ("" when the current directory could
  // not be read then).
  const std::string& GetDefaultFilePath() const { return default_file_path_; }

 private:
  std::unique_ptr<char[]> read_buffer_;
  int32_t read_buffer_size_ = kReadBufferSize;
  std::string default_file_path_;
};

VYN_EXPORT CVYNIniManager& GetVYNIniManager();
