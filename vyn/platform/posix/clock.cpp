#include "vyn/platform/clock.h"

#include <cerrno>
#include <ctime>

namespace vyn::platform {

uint32_t GetTickCount() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  const uint64_t ms =
      static_cast<uint64_t>(now.tv_sec) * 1000u + static_cast<uint64_t>(now.tv_nsec) / 1000000u;
  return static_cast<uint32_t>(ms);
}

bool QueryPerformanceCounter(int64_t* count) {
  timespec now{};
  if (count == nullptr || clock_gettime(CLOCK_MONOTONIC, &now) != 0) return false;
  *count = static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
  return true;
}

bool QueryPerformanceFrequency(int64_t* frequency) {
  if (frequency == nullptr) return false;
  *frequency = 1000000000;
  return true;
}

void SleepMilliseconds(uint32_t milliseconds) {
  timespec wait{static_cast<time_t>(milliseconds / 1000),
                static_cast<long>(milliseconds % 1000) * 1000000L};
  // Sleep the full time even when a signal interrupts the nap.
  while (nanosleep(&wait, &wait) != 0 && errno == EINTR) {
  }
}

}  // namespace vyn::platform
