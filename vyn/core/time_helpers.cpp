#include "vyn/core/time_helpers.h"

#include "vyn/platform/system_time.h"

int64_t GetSystemTimeInMs() { return vyn::platform::GetSystemTimeAsFileTime() / 10000; }

int64_t ConvertDateToMs(SYSTEMTIME date) {
  int64_t file_time = 0;
  if (!vyn::platform::SystemTimeToFileTime(date, &file_time)) return 0;
  return file_time / 10000;
}
