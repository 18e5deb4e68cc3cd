#include "vyn/core/synchronize.h"

#include "vyn/core/status.h"
#include "vyn/platform/clock.h"

// The guard may or may not hold its lock, which only its own flag knows: the
// analysis cannot follow that, so these three are taken on trust. The
// library's own code holds its locks through vyn::ScopedLock instead.
int32_t CVYNSynchronize::Initialize(CRITICAL_SECTION* lock,
                                    bool enter) VYN_NO_THREAD_SAFETY_ANALYSIS {
  if (entered_ && lock_ != nullptr) {
    LeaveCriticalSection(lock_);
  }
  entered_ = false;
  lock_ = lock;
  if (!enter) return VYN_STATUS_SUCCESS;
  if (lock_ == nullptr) return VYN_STATUS_UNSPECIFIC_ERROR;
  EnterCriticalSection(lock_);
  entered_ = true;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSynchronize::Enter(uint32_t time_limit_ms) VYN_NO_THREAD_SAFETY_ANALYSIS {
  if (entered_) return VYN_STATUS_SUCCESS;
  if (lock_ == nullptr) return VYN_STATUS_UNSPECIFIC_ERROR;
  if (time_limit_ms == 0) {
    EnterCriticalSection(lock_);
    entered_ = true;
    return VYN_STATUS_SUCCESS;
  }
  const uint32_t start = vyn::platform::GetTickCount();
  while (TryEnterCriticalSection(lock_) == 0) {
    // Unsigned subtraction keeps the test right across a wrap of the counter.
    if (vyn::platform::GetTickCount() - start > time_limit_ms) return VYN_STATUS_TIMEOUT;
    vyn::platform::SleepMilliseconds(1);
  }
  entered_ = true;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSynchronize::Leave() VYN_NO_THREAD_SAFETY_ANALYSIS {
  if (!entered_) return VYN_STATUS_SUCCESS;
  if (lock_ == nullptr) return VYN_STATUS_UNSPECIFIC_ERROR;
  LeaveCriticalSection(lock_);
  entered_ = false;
  return VYN_STATUS_SUCCESS;
}
