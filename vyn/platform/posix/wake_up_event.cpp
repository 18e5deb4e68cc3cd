#include "vyn/platform/wake_up_event.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

namespace vyn::platform {

// Non-blocking, so that Clear() on an unsignalled event returns at once and
// Signal() never waits, even when the counter were ever to saturate.
WakeUpEvent::WakeUpEvent() : descriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

WakeUpEvent::~WakeUpEvent() {
  if (descriptor_ >= 0) close(descriptor_);
}

void WakeUpEvent::Signal() {
  if (descriptor_ < 0) return;
  const uint64_t one = 1;
  while (write(descriptor_, &one, sizeof one) < 0 && errno == EINTR) {
  }
}

void WakeUpEvent::Clear() {
  if (descriptor_ < 0) return;
  uint64_t count = 0;
  // Reading an eventfd returns the whole count and resets it to 0.
  while (read(descriptor_, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

}  // namespace vyn::platform
