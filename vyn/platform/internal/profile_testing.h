// Test seams of the INI reader (internal, not exported).
#pragma once

#include <cstddef>
#include <cstdint>

namespace vyn::seams {

// How many times a file has been read and parsed since the process started.
size_t ProfileFileLoads();
// How long after its last change a file's cached copy starts being trusted
// (2000 ms unless changed); 0 trusts a copy at once.
void SetProfileSettleTime(uint32_t milliseconds);

}  // namespace vyn::seams
