#include "support/console_input.h"

#include <poll.h>
#include <signal.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>

namespace vyn::support {

struct ConsoleInput::SignalState {
  sigset_t previous_mask{};
  struct sigaction previous_pipe_action {};
  bool pipe_action_saved = false;
  int descriptor = -1;
};

ConsoleInput::ConsoleInput() : signals_(std::make_unique<SignalState>()) {
  sigset_t watched;
  sigemptyset(&watched);
  sigaddset(&watched, SIGINT);
  sigaddset(&watched, SIGTERM);
  // A closed terminal window hangs up the program's terminal.
  sigaddset(&watched, SIGHUP);
  if (pthread_sigmask(SIG_BLOCK, &watched, &signals_->previous_mask) == 0) {
    signals_->descriptor = signalfd(-1, &watched, SFD_CLOEXEC);
  }
  struct sigaction ignore {};
  ignore.sa_handler = SIG_IGN;
  sigemptyset(&ignore.sa_mask);
  signals_->pipe_action_saved = sigaction(SIGPIPE, &ignore, &signals_->previous_pipe_action) == 0;
}

ConsoleInput::~ConsoleInput() {
  if (signals_->descriptor >= 0) close(signals_->descriptor);
  pthread_sigmask(SIG_SETMASK, &signals_->previous_mask, nullptr);
  if (signals_->pipe_action_saved) sigaction(SIGPIPE, &signals_->previous_pipe_action, nullptr);
}

ConsoleInput::Result ConsoleInput::ReadLine(std::string* line) {
  for (;;) {
    const size_t end = buffered_.find('\n');
    if (end != std::string::npos || (end_of_input_ && !buffered_.empty())) {
      line->assign(buffered_, 0, end == std::string::npos ? buffered_.size() : end);
      buffered_.erase(0, end == std::string::npos ? buffered_.size() : end + 1);
      if (!line->empty() && line->back() == '\r') line->pop_back();
      return Result::kLine;
    }
    if (end_of_input_) return Result::kEndOfInput;
    // Standard output is watched for errors only: a pipe reports one when
    // its reader has gone.
    pollfd watched[3] = {
        {STDIN_FILENO, POLLIN, 0}, {signals_->descriptor, POLLIN, 0}, {STDOUT_FILENO, 0, 0}};
    if (poll(watched, 3, -1) < 0) {
      if (errno == EINTR) continue;
      return Result::kEndOfInput;
    }
    if ((watched[2].revents & POLLERR) != 0) return Result::kOutputClosed;
    if ((watched[1].revents & POLLIN) != 0) {
      signalfd_siginfo received{};
      const ssize_t ignored = read(signals_->descriptor, &received, sizeof received);
      static_cast<void>(ignored);
      return Result::kInterrupted;
    }
    char chunk[512];
    const ssize_t got = read(STDIN_FILENO, chunk, sizeof chunk);
    if (got < 0 && (errno == EINTR || errno == EAGAIN)) continue;
    if (got <= 0) {
      end_of_input_ = true;
    } else {
      buffered_.append(chunk, static_cast<size_t>(got));
    }
  }
}

}  // namespace vyn::support
