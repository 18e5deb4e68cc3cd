#include "vyn/core/ini_manager.h"

#include <new>

#include "vyn/core/status.h"
#include "vyn/platform/process.h"
#include "vyn/platform/profile.h"

CVYNIniManager::CVYNIniManager() : read_buffer_(new (std::nothrow) char[kReadBufferSize]) {
  std::string directory;
  if (vyn::platform::GetCurrentDirectory(&directory)) {
    default_file_path_ = directory + "/VYN.ini";
  }
}

CVYNIniManager::~CVYNIniManager() = default;

int32_t CVYNIniManager::GetEntry(std::string section, std::string key, std::string* value,
                                 std::string file_path) {
  if (!read_buffer_) return VYN_STATUS_NO_MEMORY;
  if (value == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  if (file_path.empty()) file_path = default_file_path_;
  const size_t read = vyn::platform::ReadProfileString(
      section, key, "", read_buffer_.get(), static_cast<size_t>(read_buffer_size_), file_path);
  if (read == 0) return VYN_STATUS_NOT_FOUND;
  value->assign(read_buffer_.get(), read);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNIniManager::SetEntry(std::string section, std::string key, std::string value,
                                 std::string file_path) {
  if (!read_buffer_) return VYN_STATUS_NO_MEMORY;
  if (file_path.empty()) file_path = default_file_path_;
  if (file_path.empty()) return VYN_STATUS_UNSPECIFIC_ERROR;
  return vyn::platform::WriteProfileString(section, key, value, file_path)
             ? VYN_STATUS_SUCCESS
             : VYN_STATUS_UNSPECIFIC_ERROR;
}
