// Test seam of the watchdog (internal, not exported): shorter limits, so that
// a test sees a hang in seconds rather than minutes.
#pragma once

#include <cstdint>

namespace vyn::seams {

// A hang is a heartbeat older than `hang_threshold_100ns`; the watchdog checks
// every `check_period_ms`.
void SetThreadMonitorTiming(int64_t hang_threshold_100ns, uint32_t check_period_ms);
void ResetThreadMonitorTiming();
// The watchdog takes `now_100ns` (a UTC file time) as the current time from
// now on; 0 gives it the real clock back.
void SetThreadMonitorClock(int64_t now_100ns);

}  // namespace vyn::seams
