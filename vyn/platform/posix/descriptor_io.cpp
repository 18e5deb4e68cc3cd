#include "vyn/platform/descriptor_io.h"

#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <ctime>

#include "vyn/platform/wake_up_event.h"

namespace vyn::platform {
namespace {

IoResult FromCall(ssize_t transferred, int saved_errno) {
  IoResult result;
  if (transferred > 0) {
    result.status = IoStatus::kDone;
    result.count = static_cast<size_t>(transferred);
  } else if (transferred == 0) {
    // End of input: on a terminal this is what a hung-up line reads.
    result.status = IoStatus::kHungUp;
  } else if (saved_errno == EAGAIN || saved_errno == EWOULDBLOCK) {
    result.status = IoStatus::kWouldBlock;
  } else if (saved_errno == EIO || saved_errno == ENXIO) {
    // EIO: the other side of a pseudo-terminal is closed, or a USB adapter
    // was pulled; ENXIO: the device node no longer has a device behind it.
    result.status = IoStatus::kHungUp;
    result.error = saved_errno;
  } else {
    result.status = IoStatus::kFailed;
    result.error = saved_errno;
  }
  return result;
}

}  // namespace

IoResult ReadDescriptor(int descriptor, uint8_t* buffer, size_t size) {
  if (size == 0) return IoResult{IoStatus::kWouldBlock, 0, 0};
  ssize_t got;
  do {
    got = read(descriptor, buffer, size);
  } while (got < 0 && errno == EINTR);
  return FromCall(got, got < 0 ? errno : 0);
}

IoResult WriteDescriptor(int descriptor, const uint8_t* data, size_t size) {
  if (size == 0) return IoResult{IoStatus::kWouldBlock, 0, 0};
  ssize_t put;
  do {
    put = write(descriptor, data, size);
  } while (put < 0 && errno == EINTR);
  // A write of 0 bytes is not the end of anything; report it as a wait.
  if (put == 0) return IoResult{IoStatus::kWouldBlock, 0, 0};
  return FromCall(put, put < 0 ? errno : 0);
}

DescriptorReadiness WaitForDescriptor(int descriptor, bool want_writable, WakeUpEvent* wake_up,
                                      int timeout_ms) {
  std::optional<std::chrono::steady_clock::time_point> deadline;
  if (timeout_ms >= 0) {
    deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
  }
  return WaitForDescriptorUntil(descriptor, true, want_writable, wake_up, deadline);
}

DescriptorReadiness WaitForDescriptorUntil(
    int descriptor, bool want_readable, bool want_writable, WakeUpEvent* wake_up,
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
  DescriptorReadiness readiness;
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

}  // namespace vyn::platform
