// Runs a program as a child process and collects what it prints.
#pragma once

#include <string>
#include <vector>

namespace vyn::test {

struct ChildResult {
  int exit_code = -1;  // exit status, or -1 when the child did not exit normally
  int signal = 0;      // the signal that ended the child, if any
  std::string output;  // standard output and standard error, interleaved
};

// Starts `argv[0]` with `argv` (no shell) and waits for it, at most
// `timeout_seconds`; a child still running then is killed.
ChildResult RunChild(const std::vector<std::string>& argv, int timeout_seconds = 60);

}  // namespace vyn::test
