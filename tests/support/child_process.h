// Programs the tests run as child processes: to their end at once (RunChild)
// or kept running while a test talks to them (ChildProcess). Standard input
// is a pipe from the test; standard output and standard error share one
// pipe back, which the test may close early to see how the child copes.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <string>
#include <vector>

namespace vyn::test {

class ChildProcess {
 public:
  explicit ChildProcess(const std::vector<std::string>& argv);  // argv[0]: the program
  ~ChildProcess();                                              // kills a child still running
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool started() const { return spawned_; }
  pid_t pid() const { return pid_; }
  const std::string& output() const { return output_; }
  // Reads output until it holds `text`; false when it does not in time.
  bool WaitForOutput(const std::string& text, int timeout_ms);
  // The next line of output (without its end) after those taken; empty when
  // none comes in time.
  std::string NextLine(int timeout_ms = 5000);
  void Write(const std::string& text);
  void CloseInput();
  void CloseOutput();  // the child's next write fails
  void Signal(int signal_number);
  // Waits for the end, reading the output; false when it runs on after `timeout_ms`.
  bool WaitForExit(int timeout_ms);
  int exit_code() const { return exit_code_; }  // -1 while running or after a signal
  int end_signal() const { return end_signal_; }

 private:
  // Reads a piece of output; false once `deadline` passed or the pipe closed.
  bool ReadUntil(std::chrono::steady_clock::time_point deadline);

  bool spawned_ = false;
  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
  std::string output_;
  size_t lines_taken_ = 0;
  int exit_code_ = -1;
  int end_signal_ = 0;
};

struct ChildResult {
  int exit_code = -1;  // exit status, or -1 when the child did not exit normally
  int signal = 0;      // the signal that ended the child, if any
  std::string output;  // standard output and standard error, interleaved
};

// Runs `argv` with `input` on its standard input, killed after `timeout_seconds`.
ChildResult RunChild(const std::vector<std::string>& argv, int timeout_seconds = 60,
                     const std::string& input = "");

#ifdef VYN_TOOL
// The command line of the vyn program (the test program knows its path).
inline std::vector<std::string> Vyn(std::vector<std::string> args) {
  args.insert(args.begin(), VYN_TOOL);
  return args;
}
inline ChildResult RunVyn(const std::vector<std::string>& args, const std::string& input = "") {
  return RunChild(Vyn(args), 60, input);
}
#endif

}  // namespace vyn::test
