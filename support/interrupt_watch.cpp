#include "support/interrupt_watch.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>

#include "vyn/platform/stop_requests.h"

namespace vyn::support {

struct InterruptWatch::State {
  platform::StopRequests stops;
  int wake = -1;
  int input = -1;
  int output = -1;
};

InterruptWatch::InterruptWatch() : state_(std::make_unique<State>()) {
  state_->wake = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
}

InterruptWatch::~InterruptWatch() {
  if (state_->wake >= 0) close(state_->wake);
}

InterruptWatch::Event InterruptWatch::Wait(int timeout_ms) {
  for (;;) {
    pollfd watched[4] = {{state_->wake, POLLIN, 0},
                         {state_->stops.descriptor(), POLLIN, 0},
                         {state_->input, POLLIN, 0},
                         {state_->output, platform::kReaderGoneWatch, 0}};
    const int ready = poll(watched, 4, timeout_ms);
    if (ready == 0) return Event::kTimedOut;
    if (ready < 0) {
      if (errno == EINTR) continue;
      return Event::kWoken;  // nothing left to wait with
    }
    if ((watched[1].revents & POLLIN) != 0) {
      state_->stops.Take();
      return Event::kInterrupted;
    }
    if ((watched[0].revents & POLLIN) != 0) {
      uint64_t count = 0;
      const ssize_t ignored = read(state_->wake, &count, sizeof count);
      static_cast<void>(ignored);
      return Event::kWoken;
    }
    if (platform::ReaderGone(watched[3].revents)) {
      state_->output = -1;
      return Event::kOutputClosed;
    }
    if (watched[2].revents != 0) {
      char discarded[512];
      const ssize_t got = read(state_->input, discarded, sizeof discarded);
      if (got == 0 || (got < 0 && errno != EINTR && errno != EAGAIN)) {
        state_->input = -1;
        return Event::kInputEnded;
      }
    }
  }
}

void InterruptWatch::WatchInputEnd(int descriptor) { state_->input = descriptor; }

void InterruptWatch::WatchOutputClosed(int descriptor) { state_->output = descriptor; }

void InterruptWatch::Wake() {
  const uint64_t one = 1;
  const ssize_t ignored = write(state_->wake, &one, sizeof one);
  static_cast<void>(ignored);
}

bool StandardErrorIsTerminal() { return isatty(STDERR_FILENO) == 1; }

}  // namespace vyn::support
