// Event types of log entries and the one entry point through which every
// service logs. The system log implements the entry point; services include
// only this header, so that nothing below the log depends on the log itself.
#pragma once

#include <cstdint>
#include <string>

// Single-bit event types; a filter is a bit mask over them. Other values are
// carried through the log unchanged and counted as unknown.
enum _VYNSystemLogExEventType : uint32_t {
  VYN_EVENT_UNKNOWN = 0x0000,
  VYN_EVENT_EXCEPTION = 0x0001,
  VYN_EVENT_ASSERT = 0x0002,
  VYN_EVENT_FATAL = 0x0010,
  VYN_EVENT_ERROR = 0x0020,
  VYN_EVENT_WARNING = 0x0040,
  VYN_EVENT_INFORMATION = 0x0080,
  VYN_EVENT_COMMAND = 0x0200,
  VYN_EVENT_DEBUG = 0x0800,
};

namespace vyn {

// Hands one entry to the system log (CVYNSystemLogEx::AddOutput) and returns
// its status. The log refuses entries while it is not running; services
// ignore the status, so logging never changes a service's own result.
// Thread-safety: callable from any thread.
int32_t LogAddOutput(const std::string& text, _VYNSystemLogExEventType type,
                     const std::string& reference, const std::string& caller,
                     const std::string& context);

}  // namespace vyn
