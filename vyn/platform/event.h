// Manual- and auto-reset events with timed waits, as the services' thread
// protocols expect them.
//
// Ownership: an Event owns its mutex and condition variable; not copyable.
// Thread-safety: every operation may be called from any thread.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <mutex>

#include "vyn/base/mutex.h"

namespace vyn::platform {

inline constexpr uint32_t kInfinite = 0xFFFFFFFF;

class Event {
 public:
  // A manual-reset event stays set until Reset; an auto-reset event is
  // cleared by the one wait it releases.
  explicit Event(bool manual_reset, bool initially_set = false);
  Event(const Event&) = delete;
  Event& operator=(const Event&) = delete;

  void Set();
  void Reset();
  // True when the event is (or becomes) set within `milliseconds`;
  // kInfinite waits without limit, 0 only tests.
  bool Wait(uint32_t milliseconds);
  bool IsSet() const;

 private:
  const bool manual_reset_;
  mutable vyn::Mutex mutex_;
  std::condition_variable changed_;
  bool set_ VYN_GUARDED_BY(mutex_);
};

}  // namespace vyn::platform
