#include "tests/tools/tool_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

extern char** environ;

namespace vyn::test {
namespace {

using Clock = std::chrono::steady_clock;

int RemainingMs(Clock::time_point deadline) {
  const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now());
  return left.count() > 0 ? static_cast<int>(left.count()) : 0;
}

}  // namespace

ToolProcess::ToolProcess(const std::vector<std::string>& args) {
  int input[2];
  int output[2];
  if (pipe2(input, O_CLOEXEC) != 0) return;
  if (pipe2(output, O_CLOEXEC) != 0) {
    close(input[0]);
    close(input[1]);
    return;
  }
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], 0);
  posix_spawn_file_actions_adddup2(&actions, output[1], 1);
  posix_spawn_file_actions_adddup2(&actions, output[1], 2);
  std::vector<char*> argv{const_cast<char*>(VYN_TOOL)};
  for (const std::string& arg : args) argv.push_back(const_cast<char*>(arg.c_str()));
  argv.push_back(nullptr);
  if (posix_spawn(&pid_, VYN_TOOL, &actions, nullptr, argv.data(), environ) != 0) pid_ = -1;
  posix_spawn_file_actions_destroy(&actions);
  close(input[0]);
  close(output[1]);
  to_child_ = input[1];
  from_child_ = output[0];
}

ToolProcess::~ToolProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
  }
  CloseInput();
  CloseOutput();
}

void ToolProcess::ReadAvailable(int timeout_ms) {
  if (from_child_ < 0) return;
  pollfd watched{from_child_, POLLIN, 0};
  if (poll(&watched, 1, timeout_ms) <= 0) return;
  char buffer[4096];
  const ssize_t got = read(from_child_, buffer, sizeof buffer);
  if (got > 0) output_.append(buffer, static_cast<size_t>(got));
  if (got == 0) CloseOutput();
}

bool ToolProcess::WaitForOutput(const std::string& text, int timeout_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  while (output_.find(text) == std::string::npos) {
    if (from_child_ < 0 || Clock::now() >= deadline) return false;
    ReadAvailable(std::min(RemainingMs(deadline), 50));
  }
  return true;
}

void ToolProcess::Write(const std::string& text) {
  if (to_child_ >= 0 && write(to_child_, text.data(), text.size()) < 0) CloseInput();
}

void ToolProcess::CloseInput() {
  if (to_child_ >= 0) close(to_child_);
  to_child_ = -1;
}

void ToolProcess::CloseOutput() {
  if (from_child_ >= 0) close(from_child_);
  from_child_ = -1;
}

void ToolProcess::Signal(int signal_number) {
  if (pid_ > 0) kill(pid_, signal_number);
}

bool ToolProcess::WaitForExit(int timeout_ms) {
  if (pid_ <= 0) return true;
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    int status = 0;
    const pid_t ended = waitpid(pid_, &status, WNOHANG);
    if (ended == pid_) {
      pid_ = -1;
      if (WIFEXITED(status)) exit_code_ = WEXITSTATUS(status);
      if (WIFSIGNALED(status)) end_signal_ = WTERMSIG(status);
      // Collect what is still in the pipe.
      while (from_child_ >= 0) ReadAvailable(100);
      return true;
    }
    if (Clock::now() >= deadline) return false;
    if (from_child_ >= 0) {
      ReadAvailable(std::min(RemainingMs(deadline), 10));
    } else {
      usleep(5000);
    }
  }
}

}  // namespace vyn::test
