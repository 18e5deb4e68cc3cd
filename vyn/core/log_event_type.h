// Event types of log entries: single bits, so that a filter is a bit mask.
#pragma once

#include <cstdint>

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
