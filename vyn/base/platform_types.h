// Platform records that are part of the library's interface. They keep the
// names and field layouts that applications are written against, so that the
// same application source reads the same on every platform.
#pragma once

#include <cstdint>

// Calendar date and time; eight unsigned 16-bit fields in this order.
struct SYSTEMTIME {
  uint16_t wYear;
  uint16_t wMonth;
  uint16_t wDayOfWeek;  // 0 = Sunday
  uint16_t wDay;
  uint16_t wHour;
  uint16_t wMinute;
  uint16_t wSecond;
  uint16_t wMilliseconds;
};

// The platform's security record of a new thread; accepted for source
// compatibility and ignored on Linux.
struct SECURITY_ATTRIBUTES {
  uint32_t nLength;
  void* lpSecurityDescriptor;
  int bInheritHandle;
};
