#include "vyn/core/ini_manager.h"

#include <cstdio>
#include <cstring>
#include <new>

#include "vyn/core/internal/log_output.h"
#include "vyn/core/status.h"
#include "vyn/platform/process.h"
#include "vyn/platform/profile.h"
#include "vyn/platform/system_error.h"

namespace {

using vyn::platform::ProfileOutcome;
using vyn::platform::ProfileStatus;

std::string Reason(const ProfileOutcome& outcome) {
  if (outcome.status == ProfileStatus::kIoError && outcome.error != 0) {
    return vyn::platform::SystemErrorText(outcome.error);
  }
  return vyn::platform::DescribeProfileStatus(outcome.status);
}

// A problem goes to the system log; while the log is not running (the INI
// file is often read before it starts) it goes to standard error instead,
// so that it is never lost.
void Report(const std::string& text) {
  if (vyn::LogAddOutput(text, VYN_EVENT_WARNING, "", "CVYNIniManager", "") != VYN_STATUS_SUCCESS) {
    std::fprintf(stderr, "vyn: %s\n", text.c_str());
  }
}

}  // namespace

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
  ProfileOutcome outcome;
  const size_t read =
      vyn::platform::ReadProfileString(section, key, "", read_buffer_.get(),
                                       static_cast<size_t>(read_buffer_size_), file_path, &outcome);
  if (outcome.status != ProfileStatus::kOk && outcome.status != ProfileStatus::kMissing) {
    Report("The INI file " + file_path + " is not read: " + Reason(outcome) + ".");
  } else if (outcome.truncated) {
    Report("The value of " + key + " in section " + section + " of " + file_path + " has " +
           std::to_string(outcome.value_length) + " characters; only the first " +
           std::to_string(read) + " are returned.");
  }
  if (read == 0) return VYN_STATUS_NOT_FOUND;
  value->assign(read_buffer_.get(), read);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNIniManager::SetEntry(std::string section, std::string key, std::string value,
                                 std::string file_path) {
  if (!read_buffer_) return VYN_STATUS_NO_MEMORY;
  if (file_path.empty()) file_path = default_file_path_;
  if (file_path.empty()) return VYN_STATUS_UNSPECIFIC_ERROR;
  ProfileOutcome outcome;
  if (vyn::platform::WriteProfileString(section, key, value, file_path, &outcome)) {
    return VYN_STATUS_SUCCESS;
  }
  Report("The INI file " + file_path + " is not written: " + Reason(outcome) + ".");
  return VYN_STATUS_UNSPECIFIC_ERROR;
}
