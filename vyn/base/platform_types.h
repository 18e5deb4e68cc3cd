// Platform records that are part of the library's interface. They keep the
// names and field layouts that applications are written against, so that the
// same application source reads the same on every platform.
#pragma once

#include <cstdint>

// Calendar date and time; eight unsigned 16-bit fields in this order.
struct SYSTEMTIME {
  uint16_t wYear;          // full year, e.g. 2024
  uint16_t wMonth;         // 1 = January to 12
  uint16_t wDayOfWeek;     // 0 = Sunday
  uint16_t wDay;           // day of the month, 1 to 31
  uint16_t wHour;          // 0 to 23
  uint16_t wMinute;        // 0 to 59
  uint16_t wSecond;        // 0 to 59
  uint16_t wMilliseconds;  // 0 to 999
};

// The platform's security record of a new thread; accepted for source
// compatibility and ignored on Linux.
struct SECURITY_ATTRIBUTES {
  uint32_t nLength;            // size of the record in bytes; not read
  void* lpSecurityDescriptor;  // not read
  int bInheritHandle;          // not read
};
