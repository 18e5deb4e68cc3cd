#include "vyn/platform/system_time.h"

#include <ctime>

namespace vyn::platform {
namespace {

constexpr int64_t kTicksPerSecond = 10000000;
constexpr int64_t kTicksPerDay = kTicksPerSecond * 86400;
constexpr uint16_t kLastYear = 30827;

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DaysInMonth(int year, int month) {
  static constexpr int kDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && IsLeapYear(year) ? 29 : kDays[month - 1];
}

// Days from 1970-01-01 to the given civil date (proleptic Gregorian).
int64_t DaysFromCivil(int64_t year, unsigned month, unsigned day) {
  year -= month <= 2;
  const int64_t era = (year >= 0 ? year : year - 399) / 400;
  const auto year_of_era = static_cast<unsigned>(year - era * 400);
  const unsigned day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const unsigned day_of_era = year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;
  return era * 146097 + static_cast<int64_t>(day_of_era) - 719468;
}

// 1601-01-01 is 134774 days before 1970-01-01.
constexpr int64_t kDaysFrom1601To1970 = 134774;

SYSTEMTIME FromTm(const std::tm& tm, long nanoseconds) {
  SYSTEMTIME st{};
  st.wYear = static_cast<uint16_t>(tm.tm_year + 1900);
  st.wMonth = static_cast<uint16_t>(tm.tm_mon + 1);
  st.wDayOfWeek = static_cast<uint16_t>(tm.tm_wday);
  st.wDay = static_cast<uint16_t>(tm.tm_mday);
  st.wHour = static_cast<uint16_t>(tm.tm_hour);
  st.wMinute = static_cast<uint16_t>(tm.tm_min);
  st.wSecond = static_cast<uint16_t>(tm.tm_sec > 59 ? 59 : tm.tm_sec);
  st.wMilliseconds = static_cast<uint16_t>(nanoseconds / 1000000);
  return st;
}

}  // namespace

int64_t GetSystemTimeAsFileTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return static_cast<int64_t>(now.tv_sec) * kTicksPerSecond + now.tv_nsec / 100 +
         kUnixEpochAsFileTime;
}

SYSTEMTIME GetSystemTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm tm{};
  gmtime_r(&now.tv_sec, &tm);
  return FromTm(tm, now.tv_nsec);
}

SYSTEMTIME GetLocalTime() {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  std::tm tm{};
  localtime_r(&now.tv_sec, &tm);
  return FromTm(tm, now.tv_nsec);
}

bool SystemTimeToFileTime(const SYSTEMTIME& time, int64_t* file_time) {
  if (file_time == nullptr) return false;
  if (time.wYear < 1601 || time.wYear > kLastYear) return false;
  if (time.wMonth < 1 || time.wMonth > 12) return false;
  if (time.wDay < 1 || time.wDay > DaysInMonth(time.wYear, time.wMonth)) return false;
  if (time.wHour > 23 || time.wMinute > 59 || time.wSecond > 59 || time.wMilliseconds > 999) {
    return false;
  }
  const int64_t days = DaysFromCivil(time.wYear, time.wMonth, time.wDay) + kDaysFrom1601To1970;
  const int64_t seconds = time.wHour * 3600 + time.wMinute * 60 + time.wSecond;
  *file_time = days * kTicksPerDay + seconds * kTicksPerSecond +
               static_cast<int64_t>(time.wMilliseconds) * 10000;
  return true;
}

bool FileTimeToSystemTime(int64_t file_time, SYSTEMTIME* time) {
  if (time == nullptr || file_time < 0) return false;
  const int64_t days = file_time / kTicksPerDay - kDaysFrom1601To1970;
  int64_t rest = file_time % kTicksPerDay;
  // Civil date from days since 1970-01-01 (inverse of DaysFromCivil).
  const int64_t z = days + 719468;
  const int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const auto day_of_era = static_cast<unsigned>(z - era * 146097);
  const unsigned year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const unsigned day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const unsigned mp = (5 * day_of_year + 2) / 153;
  const unsigned day = day_of_year - (153 * mp + 2) / 5 + 1;
  const unsigned month = mp < 10 ? mp + 3 : mp - 9;
  const int64_t year = static_cast<int64_t>(year_of_era) + era * 400 + (month <= 2);
  if (year > kLastYear) return false;
  SYSTEMTIME st{};
  st.wYear = static_cast<uint16_t>(year);
  st.wMonth = static_cast<uint16_t>(month);
  st.wDay = static_cast<uint16_t>(day);
  // 1601-01-01 was a Monday.
  st.wDayOfWeek = static_cast<uint16_t>((file_time / kTicksPerDay + 1) % 7);
  st.wHour = static_cast<uint16_t>(rest / (3600 * kTicksPerSecond));
  rest %= 3600 * kTicksPerSecond;
  st.wMinute = static_cast<uint16_t>(rest / (60 * kTicksPerSecond));
  rest %= 60 * kTicksPerSecond;
  st.wSecond = static_cast<uint16_t>(rest / kTicksPerSecond);
  rest %= kTicksPerSecond;
  st.wMilliseconds = static_cast<uint16_t>(rest / 10000);
  *time = st;
  return true;
}

bool FileTimeToLocalFileTime(int64_t utc_file_time, int64_t* local_file_time) {
  if (local_file_time == nullptr) return false;
  const int64_t unix_ticks = utc_file_time - kUnixEpochAsFileTime;
  // Floor division so that times before 1970 pick the right second.
  int64_t unix_seconds = unix_ticks / kTicksPerSecond;
  if (unix_ticks % kTicksPerSecond < 0) --unix_seconds;
  const auto seconds = static_cast<time_t>(unix_seconds);
  std::tm tm{};
  if (localtime_r(&seconds, &tm) == nullptr) return false;
  *local_file_time = utc_file_time + static_cast<int64_t>(tm.tm_gmtoff) * kTicksPerSecond;
  return true;
}

}  // namespace vyn::platform
