#include "vyn/platform/descriptor_io.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>

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
  using Clock = std::chrono::steady_clock;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  pollfd watched[2] = {};
  nfds_t count = 0;
  int device_index = -1;
  int wake_index = -1;
  if (descriptor >= 0) {
    device_index = static_cast<int>(count);
    watched[count++] =
        pollfd{descriptor, static_cast<short>(POLLIN | (want_writable ? POLLOUT : 0)), 0};
  }
  DescriptorReadiness readiness;
  if (wake_up != nullptr && wake_up->descriptor() >= 0) {
    // A signal raised before the wait ends it at once, without a poll.
    if (!wake_up->BeginWait()) {
      readiness.woken = true;
      return readiness;
    }
    wake_index = static_cast<int>(count);
    watched[count++] = pollfd{wake_up->descriptor(), POLLIN, 0};
  }
  int left = timeout_ms;
  int ready = 0;
  for (;;) {
    ready = poll(watched, count, left);
    if (ready >= 0 || errno != EINTR) break;
    if (timeout_ms > 0) {
      // Rounded up: a wait resumed with the fraction of a millisecond cut
      // off would end before its time.
      const auto remaining =
          std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
      if (remaining <= 0) {
        ready = 0;
        break;
      }
      left = static_cast<int>(remaining);
    }
  }
  if (wake_index >= 0) {
    const bool drained = ready > 0 && (watched[wake_index].revents & POLLIN) != 0;
    wake_up->EndWait(drained);
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
