// The last act of `vyn demo`: a firmware update of a simulated STM32
// processor through the library, with its log lines and progress shown.
#pragma once

#include "support/interrupt_watch.h"

namespace vyn::tool {

// Runs with the system log started (its view echoed) and the library's
// queue stopped; leaves the queue stopped again. "temp.bin" stays in the
// current directory, as after every transmission. An interrupt or a closed
// output seen by `interrupts` cancels the transmission; true then.
bool RunFirmwareDemo(support::InterruptWatch& interrupts);

}  // namespace vyn::tool
