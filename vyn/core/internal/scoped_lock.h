// ScopedLock: the library's own way of holding a CRITICAL_SECTION for a
// scope. It takes the lock through CVYNSynchronize, as every service does,
// and tells clang's thread-safety analysis that the lock is held, which the
// application-facing guard (whose constructor may or may not take the lock)
// cannot.
#pragma once

#include "vyn/base/critical_section.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/core/synchronize.h"
#include "vyn/platform/clock.h"

namespace vyn {

class VYN_SCOPED_CAPABILITY ScopedLock {
 public:
  explicit ScopedLock(CRITICAL_SECTION* lock) VYN_ACQUIRE(lock) : guard_(lock, true) {}
  ~ScopedLock() VYN_RELEASE() = default;
  ScopedLock(const ScopedLock&) = delete;
  ScopedLock& operator=(const ScopedLock&) = delete;

 private:
  CVYNSynchronize guard_;
};

// Takes `lock` if it comes free within `time_limit_ms`, polling once per
// millisecond as CVYNSynchronize::Enter does; the caller gives it back with
// LeaveCriticalSection.
inline bool TryLockFor(CRITICAL_SECTION* lock, uint32_t time_limit_ms) VYN_TRY_ACQUIRE(true, lock) {
  const uint32_t start = vyn::platform::GetTickCount();
  while (TryEnterCriticalSection(lock) == 0) {
    // Unsigned subtraction keeps the test right across a wrap of the counter.
    if (vyn::platform::GetTickCount() - start > time_limit_ms) return false;
    vyn::platform::SleepMilliseconds(1);
  }
  return true;
}

}  // namespace vyn
