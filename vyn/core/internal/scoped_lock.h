// ScopedLock: the library's own way of holding a CRITICAL_SECTION for a
// scope. It takes the lock through CVYNSynchronize, as every service does,
// and tells clang's thread-safety analysis that the lock is held, which the
// application-facing guard (whose constructor may or may not take the lock)
// cannot.
#pragma once

#include "vyn/base/critical_section.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/core/synchronize.h"

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

}  // namespace vyn
