// Calendar dates from file times, checked against the C library's own
// calendar over the whole range the conversion serves.
#include "vyn/platform/system_time.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <random>
#include <tuple>

namespace {

using namespace vyn::platform;  // NOLINT: the layer under test

constexpr int64_t kTicksPerMs = 10000;

TEST(SystemTimeTest, FileTimesBecomeTheCalendarsDatesAndBackToTheLastYear) {
  int64_t end = 0;
  ASSERT_TRUE(SystemTimeToFileTime(SYSTEMTIME{30827, 12, 0, 31, 23, 59, 59, 999}, &end));
  SYSTEMTIME date{};
  EXPECT_TRUE(FileTimeToSystemTime(end + kTicksPerMs - 1, &date));
  EXPECT_FALSE(FileTimeToSystemTime(end + kTicksPerMs, &date));
  EXPECT_FALSE(FileTimeToSystemTime(-1, &date));
  std::mt19937_64 random(20240229);
  std::uniform_int_distribution<int64_t> any_ms(0, end / kTicksPerMs);
  for (int i = 0; i < 100000; ++i) {
    // Every tenth sample sits on a day's first or last millisecond.
    int64_t ms = any_ms(random);
    if (i % 10 == 0) ms = std::max<int64_t>(0, ms / 86400000 * 86400000 - (i % 20 == 0));
    const int64_t file_time = ms * kTicksPerMs + static_cast<int64_t>(random() % kTicksPerMs);
    ASSERT_TRUE(FileTimeToSystemTime(file_time, &date)) << file_time;
    const int64_t unix_ms = ms - kUnixEpochAsFileTime / kTicksPerMs;
    const time_t seconds = static_cast<time_t>(unix_ms / 1000 - (unix_ms % 1000 < 0 ? 1 : 0));
    std::tm c{};
    ASSERT_NE(gmtime_r(&seconds, &c), nullptr);
    ASSERT_EQ(std::tuple(date.wYear, date.wMonth, date.wDayOfWeek, date.wDay, date.wHour,
                         date.wMinute, date.wSecond, date.wMilliseconds),
              std::tuple(c.tm_year + 1900, c.tm_mon + 1, c.tm_wday, c.tm_mday, c.tm_hour, c.tm_min,
                         c.tm_sec, ms % 1000))
        << file_time;
    int64_t back = 0;
    ASSERT_TRUE(SystemTimeToFileTime(date, &back));
    ASSERT_EQ(back, ms * kTicksPerMs);
  }
}

}  // namespace
