// The one bootloader port of the process, shared by the protocol operations
// and the transmission of CVYNSTM32BootLoader. Made at its first use, closed
// when the library unloads.
// Thread-safety: as vyn/platform/boot_loader_port.h says.
#pragma once

#include "vyn/platform/boot_loader_port.h"

namespace vyn::firmware {

platform::BootLoaderPort& BootLoaderLine();

}  // namespace vyn::firmware
