#include "support/precise_wait.h"

#include <poll.h>
#include <sys/prctl.h>

#include <algorithm>
#include <cerrno>
#include <ctime>

#include "vyn/platform/wake_up_event.h"

namespace vyn::support {

platform::DescriptorReadiness WaitForDescriptorUntil(
    int descriptor, bool want_readable, bool want_writable, platform::WakeUpEvent* wake_up,
    std::optional<std::chrono::steady_clock::time_point> deadline) {
  using Clock = std::chrono::steady_clock;
  pollfd watched[2] = {};
  nfds_t count = 0;
  int device_index = -1;
  int wake_index = -1;
  if (descriptor >= 0) {
    device_index = static_cast<int>(count);
    watched[count++] =
        pollfd{descriptor,
               static_cast<short>((want_readable ? POLLIN : 0) | (want_writable ? POLLOUT : 0)), 0};
  }
  platform::DescriptorReadiness readiness;
  if (wake_up != nullptr && wake_up->descriptor() >= 0) {
    // The event writes its descriptor only for a waiter that announced
    // itself; a signal raised before ends the wait at once.
    if (!wake_up->BeginWait()) {
      readiness.woken = true;
      return readiness;
    }
    wake_index = static_cast<int>(count);
    watched[count++] = pollfd{wake_up->descriptor(), POLLIN, 0};
  }
  int ready = 0;
  for (;;) {
    timespec left{};
    const timespec* limit = nullptr;
    if (deadline) {
      const auto remaining = std::chrono::duration_cast<std::chrono::nanoseconds>(
          std::max(*deadline - Clock::now(), Clock::duration::zero()));
      left.tv_sec = static_cast<time_t>(remaining.count() / 1'000'000'000);
      left.tv_nsec = static_cast<long>(remaining.count() % 1'000'000'000);
      limit = &left;
    }
    ready = ppoll(watched, count, limit, nullptr);
    if (ready >= 0 || errno != EINTR) break;
  }
  if (wake_index >= 0) {
    wake_up->EndWait(ready > 0 && (watched[wake_index].revents & POLLIN) != 0);
    readiness.woken = wake_up->IsSignaled();
  }
  if (ready <= 0) return readiness;
  if (device_index >= 0) {
    const short events = watched[device_index].revents;
    readiness.readable = (events & POLLIN) != 0;
    readiness.writable = (events & POLLOUT) != 0;
    readiness.hung_up = (events & (POLLHUP | POLLERR | POLLNVAL)) != 0;
  }
  return readiness;
}

void UseFineTimerSlack() { prctl(PR_SET_TIMERSLACK, 1UL, 0UL, 0UL, 0UL); }

}  // namespace vyn::support
