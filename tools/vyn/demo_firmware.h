// The last act of `vyn demo`: a firmware update of a simulated STM32
// processor through the library, with its log lines and progress shown.
#pragma once

namespace vyn::tool {

// Runs with the system log started (its view echoed) and the library's
// queue stopped; leaves the queue stopped again. "temp.bin" stays in the
// current directory, as after every transmission.
void RunFirmwareDemo();

}  // namespace vyn::tool
