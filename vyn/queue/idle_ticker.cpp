#include "vyn/queue/internal/idle_ticker.h"

#include <algorithm>
#include <new>

#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/status.h"
#include "vyn/platform/clock.h"

namespace vyn {

IdleTicker& IdleTicker::Get() {
  static IdleTicker ticker(500);
  return ticker;
}

IdleTicker::~IdleTicker() {
  // Stopped before the lock and the list go: the thread uses both.
  thread_.DestroyThread(true);
}

bool IdleTicker::Add(vyn::platform::WakeUpEvent* event) {
  ScopedLock guard(&lock_);
  if (!started_) {
    thread_.SetThreadName("VYN Idle Ticker");
    if (thread_.CreateThread(&IdleTicker::TickerThread, this, nullptr, 0, 0, false) !=
        VYN_STATUS_SUCCESS) {
      return false;
    }
    started_ = true;
  }
  try {
    events_.push_back(event);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

void IdleTicker::Remove(vyn::platform::WakeUpEvent* event) {
  ScopedLock guard(&lock_);
  const auto found = std::find(events_.begin(), events_.end(), event);
  if (found != events_.end()) events_.erase(found);
}

int32_t IdleTicker::TickerThread(void* parameter) {
  static_cast<IdleTicker*>(parameter)->Run();
  return VYN_STATUS_SUCCESS;
}

void IdleTicker::Run() {
  thread_.SignalStart();
  // Runs until the destructor's stop cuts its sleep short.
  while (thread_.IsRunning()) {
    if (thread_.Sleep(period_ms_) != VYN_STATUS_SUCCESS) {
      if (!thread_.IsRunning()) break;
      // A stop event that cannot be waited on must not make this a spin.
      vyn::platform::SleepMilliseconds(period_ms_);
    }
    ScopedLock guard(&lock_);
    for (vyn::platform::WakeUpEvent* event : events_) event->Signal();
  }
}

}  // namespace vyn
