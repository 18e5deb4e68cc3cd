// Points in time as signed 64-bit milliseconds since 1601-01-01 00:00:00.
// Thread-safety: pure functions; callable from any thread.
#pragma once

#include <cstdint>

#include "vyn/base/export.h"
#include "vyn/base/platform_types.h"

// Current UTC time in milliseconds since 1601-01-01.
VYN_EXPORT int64_t GetSystemTimeInMs();

// The date in milliseconds since 1601-01-01 in the date's own time zone, or
// 0 when the date is not valid (which is also the value of 1601-01-01
// 00:00:00.000). The day of week is not looked at.
VYN_EXPORT int64_t ConvertDateToMs(SYSTEMTIME date);
