// A `vyn` child process that keeps running while a test talks to it: its
// standard input is a pipe from the test, standard output and standard error
// go to one pipe back (unless the test closes that early to see how the
// child copes), and the test may send it signals.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vyn::test {

class ToolProcess {
 public:
  explicit ToolProcess(const std::vector<std::string>& args);
  ~ToolProcess();  // kills a child still running
  ToolProcess(const ToolProcess&) = delete;
  ToolProcess& operator=(const ToolProcess&) = delete;

  bool started() const { return pid_ > 0; }
  pid_t pid() const { return pid_; }
  // Reads output until it contains `text` or `timeout_ms` passed; true when found.
  bool WaitForOutput(const std::string& text, int timeout_ms);
  const std::string& output() const { return output_; }
  void Write(const std::string& text);
  void CloseInput();
  // Closes the test's end of the output pipe: the child's next write fails.
  void CloseOutput();
  void Signal(int signal_number);
  // Waits up to `timeout_ms` for the child to end, reading its output
  // meanwhile; false when it still runs. Exit code, or -1 after a signal.
  bool WaitForExit(int timeout_ms);
  int exit_code() const { return exit_code_; }
  int end_signal() const { return end_signal_; }

 private:
  void ReadAvailable(int timeout_ms);

  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
  std::string output_;
  int exit_code_ = -1;
  int end_signal_ = 0;
};

}  // namespace vyn::test
