// Calendar time and file time (100 ns units since 1601-01-01 00:00:00),
// with the validation rules below.
// Thread-safety: all functions are safe from any thread.
#pragma once

#include <cstdint>

#include "vyn/base/platform_types.h"

namespace vyn::platform {

// File time of the Unix epoch.
inline constexpr int64_t kUnixEpochAsFileTime = 116444736000000000;

// Current UTC time as a file time.
int64_t GetSystemTimeAsFileTime();
SYSTEMTIME GetSystemTime();  // UTC
SYSTEMTIME GetLocalTime();

// Converts without any time-zone change; the day of week is ignored. Fails
// for a year before 1601 or after 30827, a month outside 1-12, a day that the
// month lacks, hour > 23, minute > 59, second > 59, millisecond > 999.
bool SystemTimeToFileTime(const SYSTEMTIME& time, int64_t* file_time);
// Fails for a negative file time or one beyond the year 30827.
bool FileTimeToSystemTime(int64_t file_time, SYSTEMTIME* time);
// Shifts a UTC file time by the local zone's offset at that moment.
bool FileTimeToLocalFileTime(int64_t utc_file_time, int64_t* local_file_time);

}  // namespace vyn::platform
