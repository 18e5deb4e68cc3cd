// Test seams of the system log (internal, not exported).
#pragma once

#include <cstdint>
#include <string>

namespace vyn::testing {

// Before its next write, the log swaps the descriptor of its current file for
// one opened on `path` (for example /dev/full, where every write fails).
void RedirectSystemLogFile(const std::string& path);
// How long after a failed write the log waits before it starts a new file
// (10 s unless changed).
void SetSystemLogRetryInterval(uint32_t milliseconds);

}  // namespace vyn::testing
