// IdleTicker: raises a set of wake-up events once per period from a thread
// of its own, "VYN Idle Ticker", so that the threads waiting on them can wait
// for work without a time limit and still come round every period (to stamp
// their heartbeat). A timed wait sets a timer up and takes it down again on
// every wake-up; here one thread sleeps on one timer for all of them.
//
// Ownership: the ticker keeps pointers to events it does not own; an event
// must be removed before it is destroyed. The message queues share one
// ticker (Get), a static of the library: its destructor stops its thread, so
// that unloading the library leaves no thread behind. Every queue's
// constructor takes the ticker first, so that it is built before, and
// destroyed after, any queue that is itself a static.
// Thread-safety: Add and Remove from any thread. The ticker's lock is a leaf;
// the one call made under it is WakeUpEvent::Signal, which never blocks, and
// it is made under it so that once Remove has returned the ticker no longer
// touches the event.
#pragma once

#include <cstdint>
#include <vector>

#include "vyn/base/critical_section.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/platform/wake_up_event.h"
#include "vyn/threads/thread.h"

namespace vyn {

class IdleTicker {
 public:
  explicit IdleTicker(uint32_t period_ms) : period_ms_(period_ms) {}
  ~IdleTicker();
  IdleTicker(const IdleTicker&) = delete;
  IdleTicker& operator=(const IdleTicker&) = delete;

  // The message queues' ticker: one raise every 500 ms.
  static IdleTicker& Get();

  // Raises `event` once per period from now on, starting the ticker's thread
  // on first use. False when that thread cannot be started (nothing is
  // registered then): the caller waits with a time limit instead.
  bool Add(vyn::platform::WakeUpEvent* event);
  // Stops raising `event`; no effect for an event that is not registered.
  void Remove(vyn::platform::WakeUpEvent* event);

 private:
  static int32_t TickerThread(void* parameter);
  void Run();

  const uint32_t period_ms_;
  CVYNThread thread_;
  CRITICAL_SECTION lock_;
  bool started_ VYN_GUARDED_BY(lock_) = false;
  std::vector<vyn::platform::WakeUpEvent*> events_ VYN_GUARDED_BY(lock_);
};

}  // namespace vyn
