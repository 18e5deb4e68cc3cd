// Test seams of the system log (internal, not exported).
#pragma once

#include <cstdint>
#include <string>

namespace vyn::seams {

// Before its next write, the log swaps the descriptor of its current file for
// one opened on `path` (for example /dev/full, where every write fails).
void RedirectSystemLogFile(const std::string& path);
// The log's writes behave as on a device with only `bytes` left: a write
// that does not fit writes what does and fails with ENOSPC. Negative (the
// default): no limit.
void SetSystemLogFreeSpace(int64_t bytes);
// How long after a failed write the log waits before it starts a new file
// (10 s unless changed).
void SetSystemLogRetryInterval(uint32_t milliseconds);

}  // namespace vyn::seams
