#include "vyn/core/main.h"

#include "vyn/core/status.h"

int32_t CVYNMain::SetApplicationInformation(std::string first, std::string second) {
  first_ = std::move(first);
  second_ = std::move(second);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMain::GetApplicationInformation(std::string& first, std::string& second) {
  first = first_;
  second = second_;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNMain::InitializeModules() { return VYN_STATUS_SUCCESS; }

int32_t CVYNMain::TerminateModules() { return VYN_STATUS_SUCCESS; }
