#include "tests/support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cerrno>

extern char** environ;

namespace vyn::test {

ChildResult RunChild(const std::vector<std::string>& argv, int timeout_seconds) {
  ChildResult result;
  int pipe_fds[2];
  if (pipe2(pipe_fds, O_CLOEXEC) != 0) return result;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], 1);
  posix_spawn_file_actions_adddup2(&actions, pipe_fds[1], 2);
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  pid_t pid = -1;
  const int spawned = posix_spawn(&pid, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  close(pipe_fds[1]);
  if (spawned != 0) {
    close(pipe_fds[0]);
    result.output = "spawn failed";
    return result;
  }
  timespec start{};
  clock_gettime(CLOCK_MONOTONIC, &start);
  char buffer[4096];
  for (;;) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    if (now.tv_sec - start.tv_sec > timeout_seconds) {
      kill(pid, SIGKILL);
      break;
    }
    pollfd waiting{pipe_fds[0], POLLIN, 0};
    if (poll(&waiting, 1, 200) <= 0) continue;
    const ssize_t got = read(pipe_fds[0], buffer, sizeof buffer);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    result.output.append(buffer, static_cast<size_t>(got));
  }
  close(pipe_fds[0]);
  int status = 0;
  while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
  }
  if (WIFEXITED(status)) result.exit_code = WEXITSTATUS(status);
  if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
  return result;
}

}  // namespace vyn::test
