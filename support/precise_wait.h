// Timed waits that end as close to their deadline as the system allows, for
// a thread that paces a simulated line (see WaitForDescriptorUntil in
// vyn/platform/descriptor_io.h for the wait itself).
// Thread-safety: acts on the calling thread only.
#pragma once

namespace vyn::support {

// Lets the calling thread's timed waits end as close to their deadline as
// the system allows, instead of the default slack of some 50 microseconds
// that the kernel uses to batch wake-ups. For a thread that paces a line.
void UseFineTimerSlack();

}  // namespace vyn::support
