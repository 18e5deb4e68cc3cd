#include "support/console_input.h"

#include <poll.h>
#include <unistd.h>

#include <cerrno>

#include "vyn/platform/stop_requests.h"

namespace vyn::support {

ConsoleInput::ConsoleInput() : stops_(std::make_unique<platform::StopRequests>()) {}

ConsoleInput::~ConsoleInput() = default;

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
    pollfd watched[3] = {{STDIN_FILENO, POLLIN, 0},
                         {stops_->descriptor(), POLLIN, 0},
                         {STDOUT_FILENO, platform::kReaderGoneWatch, 0}};
    if (poll(watched, 3, -1) < 0) {
      if (errno == EINTR) continue;
      return Result::kEndOfInput;
    }
    if (platform::ReaderGone(watched[2].revents)) return Result::kOutputClosed;
    if ((watched[1].revents & POLLIN) != 0) {
      stops_->Take();
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
