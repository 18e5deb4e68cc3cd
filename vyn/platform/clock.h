// Monotonic clocks and sleeping.
// Thread-safety: all functions are safe from any thread.
#pragma once

#include <cstdint>

namespace vyn::platform {

// Milliseconds of the monotonic clock, wrapping at 32 bits (every 49.7
// days); compare two readings with unsigned subtraction.
uint32_t GetTickCount();

// High-resolution counter in nanoseconds; the frequency is 1e9 per second.
// Both report false only where the platform has no such clock.
bool QueryPerformanceCounter(int64_t* count);
bool QueryPerformanceFrequency(int64_t* frequency);

void SleepMilliseconds(uint32_t milliseconds);

}  // namespace vyn::platform
