#include "vyn/platform/event.h"

#include <chrono>

namespace vyn::platform {

Event::Event(bool manual_reset, bool initially_set)
    : manual_reset_(manual_reset), set_(initially_set) {}

void Event::Set() {
  // Notifying under the mutex lets a waiter destroy the event as soon as its
  // wait returns: the setter touches nothing of it after unlocking.
  std::lock_guard lock(mutex_);
  set_ = true;
  if (manual_reset_) {
    changed_.notify_all();
  } else {
    changed_.notify_one();
  }
}

void Event::Reset() {
  std::lock_guard lock(mutex_);
  set_ = false;
}

bool Event::Wait(uint32_t milliseconds) {
  std::unique_lock lock(mutex_);
  const auto is_set = [this] { return set_; };
  bool released;
  if (milliseconds == kInfinite) {
    changed_.wait(lock, is_set);
    released = true;
  } else {
    released = changed_.wait_for(lock, std::chrono::milliseconds(milliseconds), is_set);
  }
  if (released && !manual_reset_) set_ = false;
  return released;
}

bool Event::IsSet() const {
  std::lock_guard lock(mutex_);
  return set_;
}

}  // namespace vyn::platform
