#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>
#include <utility>

extern char** environ;

namespace vyn::test {

using Clock = std::chrono::steady_clock;

ChildProcess::ChildProcess(const std::vector<std::string>& argv) {
  int input[2] = {-1, -1};
  int output[2] = {-1, -1};
  if (argv.empty() || pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) {
    for (const int end : {input[0], input[1]}) close(end);
    return;
  }
  // Input the child does not read must not end the test with SIGPIPE; the
  // child gets the default action back.
  signal(SIGPIPE, SIG_IGN);
  posix_spawnattr_t attributes;
  posix_spawnattr_init(&attributes);
  sigset_t defaults;
  sigemptyset(&defaults);
  sigaddset(&defaults, SIGPIPE);
  posix_spawnattr_setsigdefault(&attributes, &defaults);
  posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSIGDEF);
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, input[0], 0);
  posix_spawn_file_actions_adddup2(&actions, output[1], 1);
  posix_spawn_file_actions_adddup2(&actions, output[1], 2);
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  spawned_ = posix_spawn(&pid_, args[0], &actions, &attributes, args.data(), environ) == 0;
  posix_spawn_file_actions_destroy(&actions);
  posix_spawnattr_destroy(&attributes);
  close(input[0]);
  close(output[1]);
  to_child_ = input[1];
  from_child_ = output[0];
}

ChildProcess::~ChildProcess() {
  Signal(SIGKILL);
  while (pid_ > 0 && waitpid(pid_, nullptr, 0) < 0 && errno == EINTR) {
  }
  CloseInput();
  CloseOutput();
}

bool ChildProcess::ReadUntil(Clock::time_point deadline) {
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
  if (from_child_ < 0 || left <= 0) return false;
  pollfd watched{from_child_, POLLIN, 0};
  if (poll(&watched, 1, static_cast<int>(std::min<long>(left, 20))) <= 0) return true;
  char buffer[4096];
  const ssize_t got = read(from_child_, buffer, sizeof buffer);
  if (got > 0) output_.append(buffer, static_cast<size_t>(got));
  if (got == 0 || (got < 0 && errno != EINTR)) CloseOutput();
  return from_child_ >= 0;
}

bool ChildProcess::WaitForOutput(const std::string& text, int timeout_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  while (output_.find(text) == std::string::npos && ReadUntil(deadline)) {
  }
  return output_.find(text) != std::string::npos;
}

std::string ChildProcess::NextLine(int timeout_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  size_t end = std::string::npos;
  while ((end = output_.find('\n', lines_taken_)) == std::string::npos) {
    if (!ReadUntil(deadline)) return "";
  }
  const std::string line = output_.substr(lines_taken_, end - lines_taken_);
  lines_taken_ = end + 1;
  return line;
}

void ChildProcess::Write(const std::string& text) {
  if (to_child_ >= 0 && write(to_child_, text.data(), text.size()) < 0) CloseInput();
}

void ChildProcess::CloseInput() { close(std::exchange(to_child_, -1)); }

void ChildProcess::CloseOutput() { close(std::exchange(from_child_, -1)); }

void ChildProcess::Signal(int signal_number) {
  if (spawned_ && pid_ > 0) kill(pid_, signal_number);
}

bool ChildProcess::WaitForExit(int timeout_ms) {
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  int status = 0;
  if (!spawned_) return true;
  while (pid_ > 0 && waitpid(pid_, &status, WNOHANG) != pid_) {
    if (Clock::now() >= deadline) return false;
    if (!ReadUntil(deadline)) std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  if (pid_ > 0) {
    pid_ = -1;
    if (WIFEXITED(status)) exit_code_ = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) end_signal_ = WTERMSIG(status);
  }
  // What is still in the pipe; a grandchild holding it open is not waited
  // for past the deadline.
  while (ReadUntil(deadline)) {
  }
  return true;
}

ChildResult RunChild(const std::vector<std::string>& argv, int timeout_seconds,
                     const std::string& input) {
  ChildProcess child(argv);
  if (!child.started()) return ChildResult{-1, 0, "spawn failed"};
  child.Write(input);
  child.CloseInput();
  if (!child.WaitForExit(timeout_seconds * 1000)) {
    child.Signal(SIGKILL);
    child.WaitForExit(10000);
  }
  return ChildResult{child.exit_code(), child.end_signal(), child.output()};
}

}  // namespace vyn::test
