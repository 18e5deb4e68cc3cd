// Polls a condition that another thread or process makes true, for tests
// that have nothing to block on.
#pragma once

#include <chrono>
#include <thread>

namespace vyn::test {

// True as soon as `condition()` holds; false when it still does not after
// `limit_ms` (generous by default: a loaded machine may be slow, never a
// correct one wrong).
template <typename Condition>
bool WaitUntil(Condition condition, int limit_ms = 20000) {
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(limit_ms);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > end) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace vyn::test
