#include "vyn/platform/wake_up_event.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdint>

namespace vyn::platform {

// Non-blocking, so that draining an empty counter returns at once and a
// write never waits, even when the counter were ever to saturate.
WakeUpEvent::WakeUpEvent() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

WakeUpEvent::~WakeUpEvent() {
  if (descriptor_ >= 0) close(descriptor_);
}

void WakeUpEvent::Signal() {
  if (pending_.exchange(true)) return;  // raised already: whoever raised it woke the waiter
  if (!waiting_.load() || descriptor_ < 0) return;
  const uint64_t one = 1;
  while (write(descriptor_, &one, sizeof one) < 0 && errno == EINTR) {
  }
}

void WakeUpEvent::Clear() { pending_.store(false); }

bool WakeUpEvent::BeginWait() {
  waiting_.store(true);
  if (!pending_.load()) return true;
  waiting_.store(false);
  return false;
}

void WakeUpEvent::EndWait(bool descriptor_ready) {
  waiting_.store(false);
  // A write that raced a wait which found the flag raised leaves a count
  // behind; it is drained whenever poll shows it, so it costs at most one
  // early return.
  if (descriptor_ready) Drain();
}

void WakeUpEvent::Drain() {
  uint64_t count = 0;
  // Reading an eventfd returns the whole count and resets it to 0.
  while (read(descriptor_, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

bool WakeUpEvent::Wait(uint32_t milliseconds) {
  using Clock = std::chrono::steady_clock;
  if (pending_.exchange(false)) return true;
  if (milliseconds == 0) return false;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return pending_.exchange(false);
    if (!BeginWait()) return pending_.exchange(false);
    bool ready = false;
    if (descriptor_ >= 0) {
      pollfd watched{descriptor_, POLLIN, 0};
      // An interrupted poll comes back here and waits for the time left.
      ready = poll(&watched, 1, static_cast<int>(left)) > 0 && (watched.revents & POLLIN) != 0;
    } else {
      // Without a descriptor there is nothing to be woken by: sleep it out.
      ::usleep(static_cast<useconds_t>(left) * 1000);
    }
    EndWait(ready);
    if (pending_.exchange(false)) return true;
  }
}

}  // namespace vyn::platform
