// CVYNSynchronize: a scoped guard over a re-entrant lock that somebody else
// owns. It takes the lock at most once (a second Enter on a guard that holds
// it does nothing) and gives it back when asked or when it is destroyed.
//
// Ownership: the guard never creates or destroys the lock.
// Thread-safety: a guard belongs to the thread that uses it; only the lock is
// shared. Guards are meant to live on the stack and are not copied by the
// library (a copy would duplicate the entered flag, and both copies would
// give the lock back).
#pragma once

#include <cstdint>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"

class VYN_EXPORT CVYNSynchronize {
 public:
  CVYNSynchronize() = default;
  // Refers to `lock`; with `enter` and a present lock, takes it, waiting as
  // long as needed.
  // The untimed paths are inline: they sit on every service's hot path, where
  // a guard should cost no more than the lock itself.
  CVYNSynchronize(CRITICAL_SECTION* lock, bool enter) : lock_(lock) {
    if (enter && lock_ != nullptr) {
      lock_->mutex.lock();
      entered_ = true;
    }
  }
  ~CVYNSynchronize() {
    if (entered_ && lock_ != nullptr) lock_->mutex.unlock();
  }
  // Copies the lock and the entered flag; see the thread-safety note above
  // for why the library never does.
  CVYNSynchronize& operator=(const CVYNSynchronize& other) = default;

  // Gives back the current lock if held, then refers to `lock`. With
  // `enter`: VYN_STATUS_UNSPECIFIC_ERROR for an absent lock, else takes it.
  int32_t Initialize(CRITICAL_SECTION* lock, bool enter);
  // Takes the lock. A limit of 0 waits as long as needed; any other limit
  // polls once per millisecond and gives up with VYN_STATUS_TIMEOUT at the
  // first poll after more than `time_limit_ms` milliseconds.
  int32_t Enter(uint32_t time_limit_ms = 0);
  // Gives the lock back if this guard holds it: 0, also when it did not
  // hold it; VYN_STATUS_UNSPECIFIC_ERROR when it holds an absent lock.
  int32_t Leave();

 private:
  bool entered_ = false;
  CRITICAL_SECTION* lock_ = nullptr;
};
