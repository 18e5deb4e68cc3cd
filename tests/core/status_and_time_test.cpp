#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "vyn/core/status.h"
#include "vyn/core/time_helpers.h"

namespace {

SYSTEMTIME Date(uint16_t year, uint16_t month, uint16_t day, uint16_t hour = 0, uint16_t minute = 0,
                uint16_t second = 0, uint16_t ms = 0) {
  return SYSTEMTIME{year, month, 0, day, hour, minute, second, ms};
}

TEST(StatusTest, NamesEveryCodeAndNothingElse) {
  // Both ends of the table and each side of its gap.
  EXPECT_EQ(GetVYNStatusAsString(0), "VYN_STATUS_SUCCESS");
  EXPECT_EQ(GetVYNStatusAsString(-12), "VYN_STATUS_NOT_FOUND");
  EXPECT_EQ(GetVYNStatusAsString(-14), "VYN_STATUS_INVALID_DATA");
  EXPECT_EQ(GetVYNStatusAsString(-26), "VYN_STATUS_INVALID_CRC");
  for (int32_t unnamed : {-13, 1, -27, INT32_MIN, INT32_MAX}) {
    EXPECT_EQ(GetVYNStatusAsString(unnamed), "???") << unnamed;
  }
}

TEST(TimeHelpersTest, ConvertsValidDatesOnTheFileTimeScale) {
  EXPECT_EQ(ConvertDateToMs(Date(1601, 1, 1)), 0);
  EXPECT_EQ(ConvertDateToMs(Date(1970, 1, 1)), 11644473600000);
  EXPECT_EQ(ConvertDateToMs(Date(1970, 1, 1, 0, 0, 0, 999)), 11644473600999);
  // 2000 is a leap year, 1900 is not.
  EXPECT_EQ(ConvertDateToMs(Date(2000, 3, 1)) - ConvertDateToMs(Date(2000, 2, 28)), 2 * 86400000LL);
  EXPECT_EQ(ConvertDateToMs(Date(1900, 3, 1)) - ConvertDateToMs(Date(1900, 2, 28)), 86400000LL);
  EXPECT_EQ(ConvertDateToMs(Date(2018, 11, 28, 14, 28, 25)), 13187888905000);
  // The day of week plays no part.
  SYSTEMTIME with_weekday = Date(1970, 1, 1);
  with_weekday.wDayOfWeek = 6;
  EXPECT_EQ(ConvertDateToMs(with_weekday), 11644473600000);
}

TEST(TimeHelpersTest, RejectsInvalidDatesWithZero) {
  const SYSTEMTIME invalid[] = {
      Date(2020, 13, 1),       Date(2020, 0, 1),           Date(2021, 4, 31),
      Date(2021, 2, 29),       Date(1900, 2, 29),          Date(2020, 2, 30),
      Date(1600, 12, 31),      Date(2020, 1, 0),           Date(2020, 1, 1, 24),
      Date(2020, 1, 1, 0, 60), Date(2020, 1, 1, 0, 0, 60), Date(2020, 1, 1, 0, 0, 0, 1000),
      Date(30828, 1, 1),
  };
  for (const SYSTEMTIME& date : invalid) {
    EXPECT_EQ(ConvertDateToMs(date), 0)
        << date.wYear << "-" << date.wMonth << "-" << date.wDay << " " << date.wHour << ":"
        << date.wMinute << ":" << date.wSecond << "." << date.wMilliseconds;
  }
  EXPECT_NE(ConvertDateToMs(Date(2020, 2, 29)), 0);
  EXPECT_NE(ConvertDateToMs(Date(30827, 12, 31, 23, 59, 59, 999)), 0);
}

TEST(TimeHelpersTest, SystemTimeFollowsTheWallClock) {
  const int64_t before = GetSystemTimeInMs();
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  const int64_t after = GetSystemTimeInMs();
  // On the file-time scale and moving forward by roughly the time slept.
  EXPECT_GE(after - before, 45);
  EXPECT_LT(after - before, 5000);
  const auto unix_ms = std::chrono::duration_cast<std::chrono::milliseconds>(
                           std::chrono::system_clock::now().time_since_epoch())
                           .count();
  EXPECT_NEAR(static_cast<double>(after - 11644473600000), static_cast<double>(unix_ms), 1000.0);
}

}  // namespace
