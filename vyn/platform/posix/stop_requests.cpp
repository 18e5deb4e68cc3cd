#include "vyn/platform/stop_requests.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

namespace vyn::platform {

struct StopRequests::State {
  sigset_t previous_mask{};
  struct sigaction previous_pipe_action {};
  bool pipe_action_saved = false;
  int descriptor = -1;
};

StopRequests::StopRequests() : state_(std::make_unique<State>()) {
  sigset_t watched;
  sigemptyset(&watched);
  sigaddset(&watched, SIGINT);
  sigaddset(&watched, SIGTERM);
  // A closed terminal window hangs up the program's terminal.
  sigaddset(&watched, SIGHUP);
  if (pthread_sigmask(SIG_BLOCK, &watched, &state_->previous_mask) == 0) {
    state_->descriptor = signalfd(-1, &watched, SFD_CLOEXEC | SFD_NONBLOCK);
  }
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  state_->pipe_action_saved = sigaction(SIGPIPE, &ignore, &state_->previous_pipe_action) == 0;
}

StopRequests::~StopRequests() {
  if (state_->descriptor >= 0) close(state_->descriptor);
  pthread_sigmask(SIG_SETMASK, &state_->previous_mask, nullptr);
  if (state_->pipe_action_saved) sigaction(SIGPIPE, &state_->previous_pipe_action, nullptr);
}

int StopRequests::descriptor() const { return state_->descriptor; }

void StopRequests::Take() {
  signalfd_siginfo received{};
  const ssize_t ignored = read(state_->descriptor, &received, sizeof received);
  static_cast<void>(ignored);
}

void IgnoreBrokenPipe() {
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  sigaction(SIGPIPE, &ignore, nullptr);
}

// A pipe's writing end reports POLLERR once its reader has gone; a socket
// or terminal reports POLLHUP.
bool ReaderGone(short reported_events) { return (reported_events & (POLLERR | POLLHUP)) != 0; }

bool OutputReaderGone(int descriptor) {
  pollfd watched{descriptor, kReaderGoneWatch, 0};
  return poll(&watched, 1, 0) > 0 && ReaderGone(watched.revents);
}

}  // namespace vyn::platform
