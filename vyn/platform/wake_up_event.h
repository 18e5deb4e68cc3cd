// WakeUpEvent: the one way a consumer thread of the library (log output,
// message dispatch, serial I/O) is woken. Producers call Signal(); the
// consumer waits with Wait(ms), or together with a device in
// WaitForDescriptor (descriptor_io.h), and takes the signal back with
// Clear(). Signals do not count: several Signal() calls before the consumer
// looks are seen as one.
//
// Cost: a signal is an atomic flag. The system is involved only when the
// consumer is waiting or about to wait, so a producer that keeps a busy
// consumer fed makes no system call at all: a plain Wait sleeps on the flag
// itself (a futex), which a signal wakes directly; a wait together with a
// device sleeps in poll() on an eventfd, which a signal writes. The consumer
// announces its wait (and its kind) before it looks at the flag and the
// producer raises the flag before it looks for a waiter (both sequentially
// consistent), so one of the two always sees the other and no signal is
// lost.
//
// Ownership: the object owns its descriptor and closes it; not copyable.
// Thread-safety: Signal() and IsSignaled() from any thread; Wait, Clear and
// the waits of WaitForDescriptor belong to the one consumer thread.
#pragma once

#include <atomic>
#include <cstdint>

#include "vyn/platform/scoped_descriptor.h"

namespace vyn::platform {

class WakeUpEvent {
 public:
  WakeUpEvent();
  ~WakeUpEvent();
  WakeUpEvent(const WakeUpEvent&) = delete;
  WakeUpEvent& operator=(const WakeUpEvent&) = delete;

  // False when the system refused a descriptor: Wait then sleeps its full
  // time unless a signal was already raised, and WaitForDescriptor does not
  // see wake-ups.
  bool IsValid() const { return descriptor_.IsValid(); }
  void Signal();
  bool IsSignaled() const { return pending_.load() != 0; }
  // True when a signal is raised or arrives within `milliseconds`; the
  // signal is taken back. 0 only tests; kNoTimeLimit waits for a signal
  // however long it takes, and arms no timer (a timed wait sets one up and
  // takes it down again on every wake-up, which a consumer woken thousands
  // of times a second feels).
  static constexpr uint32_t kNoTimeLimit = UINT32_MAX;
  bool Wait(uint32_t milliseconds);
  // Takes back a raised signal, so that the next wait blocks again.
  void Clear();

  // For WaitForDescriptor: BeginWait announces a wait and answers false when
  // a signal is raised already (then nothing need be waited for); EndWait
  // ends it, `descriptor_ready` telling whether poll saw the descriptor.
  bool BeginWait();
  void EndWait(bool descriptor_ready);
  // For WaitForDescriptor's poll; -1 when invalid.
  int descriptor() const { return descriptor_.get(); }

 private:
  void Drain();

  enum Waiter : uint32_t { kNone = 0, kOnFlag = 1, kOnDescriptor = 2 };

  ScopedDescriptor descriptor_;
  // 0 or 1; also the futex word of a plain Wait.
  std::atomic<uint32_t> pending_{0};
  std::atomic<uint32_t> waiting_{kNone};
};

}  // namespace vyn::platform
