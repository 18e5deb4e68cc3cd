// Mutex: a plain (not re-entrant) lock for short critical sections that call
// nothing else, annotated for clang's thread-safety analysis. The library's
// re-entrant lock is CRITICAL_SECTION; this one is for leaf locks. Header
// only, on the standard library alone, so every layer may use it.
// Thread-safety: any thread; a thread must not take it twice.
#pragma once

#include <mutex>

#include "vyn/base/thread_annotations.h"

namespace vyn {

// The lock; not copyable, not re-entrant.
class VYN_CAPABILITY("mutex") Mutex {
 public:
  Mutex() = default;
  Mutex(const Mutex&) = delete;
  Mutex& operator=(const Mutex&) = delete;

  // Takes the lock, waiting while another thread holds it.
  void Lock() VYN_ACQUIRE() { mutex_.lock(); }
  // Gives it back; only the holding thread may.
  void Unlock() VYN_RELEASE() { mutex_.unlock(); }
  // For condition variables, which wait on the standard mutex itself.
  std::mutex& native() { return mutex_; }

 private:
  std::mutex mutex_;
};

// Holds a Mutex from its construction to the end of its scope.
class VYN_SCOPED_CAPABILITY MutexLock {
 public:
  // Locks `mutex`, which must outlive this object; blocks until it is free.
  explicit MutexLock(Mutex* mutex) VYN_ACQUIRE(mutex) : mutex_(mutex) { mutex_->Lock(); }
  ~MutexLock() VYN_RELEASE() { mutex_->Unlock(); }
  MutexLock(const MutexLock&) = delete;
  MutexLock& operator=(const MutexLock&) = delete;

 private:
  Mutex* mutex_;
};

}  // namespace vyn
