// A wait like WaitForDescriptor (descriptor_io.h) that ends at a moment of
// the steady clock, with the resolution of the system's timers instead of
// whole milliseconds: a simulated serial line at 115,200 baud hands over a
// byte every 95 microseconds, and a wait rounded up to the next millisecond
// would stretch every answer by up to ten byte times.
// Thread-safety: the functions keep no state; the descriptor must stay open
// during the wait.
#pragma once

#include <chrono>
#include <optional>

#include "vyn/platform/descriptor_io.h"

namespace vyn::support {

// Waits until `descriptor` is readable when `want_readable`, writable when
// `want_writable`, hangs up (always watched), `wake_up` is signalled, or
// `deadline` has come (none: no limit; one in the past: only looks). A
// negative descriptor waits on the wake-up event alone; `wake_up` may be
// null. Interrupted waits are resumed.
platform::DescriptorReadiness WaitForDescriptorUntil(
    int descriptor, bool want_readable, bool want_writable, platform::WakeUpEvent* wake_up,
    std::optional<std::chrono::steady_clock::time_point> deadline);

// Lets the calling thread's timed waits end as close to their deadline as
// the system allows, instead of the default slack of some 50 microseconds
// that the kernel uses to batch wake-ups. For a thread that paces a line.
void UseFineTimerSlack();

}  // namespace vyn::support
