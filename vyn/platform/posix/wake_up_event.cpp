#include "vyn/platform/wake_up_event.h"

#include <linux/futex.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/syscall.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>

namespace vyn::platform {
namespace {

// Sleeps while `*word` is 0, at most `milliseconds` (negative: no limit);
// returns early on a wake, a signal or a change of the word (which the kernel
// checks atomically).
void FutexWait(std::atomic<uint32_t>* word, int64_t milliseconds) {
  const timespec limit{static_cast<time_t>(milliseconds / 1000),
                       static_cast<long>((milliseconds % 1000) * 1000000)};
  syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), FUTEX_WAIT_PRIVATE, 0,
          milliseconds < 0 ? nullptr : &limit, nullptr, 0);
}

void FutexWakeOne(std::atomic<uint32_t>* word) {
  syscall(SYS_futex, reinterpret_cast<uint32_t*>(word), FUTEX_WAKE_PRIVATE, 1, nullptr, nullptr, 0);
}

}  // namespace

// Non-blocking, so that draining an empty counter returns at once and a
// write never waits, even when the counter were ever to saturate.
WakeUpEvent::WakeUpEvent() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
  static_assert(sizeof(std::atomic<uint32_t>) == sizeof(uint32_t) &&
                    std::atomic<uint32_t>::is_always_lock_free,
                "the flag must be a plain 32-bit word for the futex");
}

WakeUpEvent::~WakeUpEvent() = default;

void WakeUpEvent::Signal() {
  if (pending_.exchange(1) != 0) return;  // raised already: whoever raised it woke the waiter
  switch (waiting_.load()) {
    case kOnFlag:
      FutexWakeOne(&pending_);
      break;
    case kOnDescriptor:
      if (descriptor_.IsValid()) {
        const uint64_t one = 1;
        while (write(descriptor_.get(), &one, sizeof one) < 0 && errno == EINTR) {
        }
      }
      break;
    default:
      break;
  }
}

void WakeUpEvent::Clear() { pending_.store(0); }

bool WakeUpEvent::BeginWait() {
  waiting_.store(kOnDescriptor);
  if (pending_.load() == 0) return true;
  waiting_.store(kNone);
  return false;
}

void WakeUpEvent::EndWait(bool descriptor_ready) {
  waiting_.store(kNone);
  // A write that raced a wait which found the flag raised leaves a count
  // behind; it is drained whenever poll shows it, so it costs at most one
  // early return.
  if (descriptor_ready) Drain();
}

void WakeUpEvent::Drain() {
  uint64_t count = 0;
  // Reading an eventfd returns the whole count and resets it to 0.
  while (read(descriptor_.get(), &count, sizeof count) < 0 && errno == EINTR) {
  }
}

bool WakeUpEvent::Wait(uint32_t milliseconds) {
  using Clock = std::chrono::steady_clock;
  if (pending_.exchange(0) != 0) return true;
  if (milliseconds == 0) return false;
  if (milliseconds == kNoTimeLimit) {
    for (;;) {
      waiting_.store(kOnFlag);
      if (pending_.load() == 0) FutexWait(&pending_, -1);
      waiting_.store(kNone);
      if (pending_.exchange(0) != 0) return true;
    }
  }
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return pending_.exchange(0) != 0;
    waiting_.store(kOnFlag);
    // The kernel sleeps only while the flag is still 0, so a signal raised
    // after this look is not missed either.
    if (pending_.load() == 0) FutexWait(&pending_, left);
    waiting_.store(kNone);
    if (pending_.exchange(0) != 0) return true;
  }
}

}  // namespace vyn::platform
