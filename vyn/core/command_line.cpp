#include "vyn/core/command_line.h"

#include "vyn/core/status.h"
#include "vyn/platform/process.h"

CVYNCommandLine::~CVYNCommandLine() = default;

int32_t CVYNCommandLine::Initialize() {
  if (initialized_) return VYN_STATUS_SUCCESS;
  if (!vyn::platform::GetProcessArguments(&arguments_)) {
    arguments_.clear();
    argument_count_ = 0;
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  argument_count_ = static_cast<int32_t>(arguments_.size());
  initialized_ = true;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandLine::GetArgument(int32_t index, std::string& argument) {
  if (!initialized_ && Initialize() != VYN_STATUS_SUCCESS) return VYN_STATUS_UNSPECIFIC_ERROR;
  if (index < 0 || index >= argument_count_) return VYN_STATUS_INVALID_PARAMETER;
  argument = arguments_[static_cast<size_t>(index)];
  return VYN_STATUS_SUCCESS;
}
