// The one entry point through which every service logs. The system log implements the entry point;
// services include only this header, so that nothing below the log depends on the log itself.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/core/log_event_type.h"

namespace vyn {

// Hands one entry to the system log (CVYNSystemLogEx::AddOutput) and returns
// its status. The log refuses entries while it is not running; services
// ignore the status, so logging never changes a service's own result.
// Thread-safety: callable from any thread.
int32_t LogAddOutput(const std::string& text, _VYNSystemLogExEventType type,
                     const std::string& reference, const std::string& caller,
                     const std::string& context);

}  // namespace vyn
