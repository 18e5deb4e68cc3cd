#include "vyn/platform/event.h"

#include <chrono>

namespace vyn::platform {

Event::Event(bool manual_reset, bool initially_set)
    : manual_reset_(manual_reset), set_(initially_set) {}

void Event::Set() {
  // Notifying under the mutex lets a waiter destroy the event as soon as its
  // wait returns: the setter touches nothing of it after unlocking.
  vyn::MutexLock lock(&mutex_);
  set_ = true;
  if (manual_reset_) {
    changed_.notify_all();
  } else {
    changed_.notify_one();
  }
}

void Event::Reset() {
  vyn::MutexLock lock(&mutex_);
  set_ = false;
}

bool Event::Wait(uint32_t milliseconds) {
  mutex_.Lock();
  // The condition variable waits on the standard mutex inside; the lock is
  // ours from Lock to Unlock throughout.
  std::unique_lock<std::mutex> lock(mutex_.native(), std::adopt_lock);
  bool released = true;
  if (milliseconds == kInfinite) {
    while (!set_) changed_.wait(lock);
  } else {
    const auto deadline =
        std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (!set_) {
      if (changed_.wait_until(lock, deadline) == std::cv_status::timeout) {
        released = set_;
        break;
      }
    }
  }
  if (released && !manual_reset_) set_ = false;
  lock.release();
  mutex_.Unlock();
  return released;
}

bool Event::IsSet() const {
  vyn::MutexLock lock(&mutex_);
  return set_;
}

}  // namespace vyn::platform
