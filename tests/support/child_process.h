// Programs the tests run as child processes: either to the end at once
// (RunChild), or kept running while a test talks to it (ChildProcess): its
// standard input is a pipe from the test, standard output and standard error
// go to one pipe back (unless the test closes that early to see how the
// child copes), and the test may send it signals.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace vyn::test {

class ChildProcess {
 public:
  // Starts `argv[0]` with `argv` (no shell).
  explicit ChildProcess(const std::vector<std::string>& argv);
  ~ChildProcess();  // kills a child still running
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;

  bool started() const { return spawned_; }
  pid_t pid() const { return pid_; }
  // Reads output until it contains `text` or `timeout_ms` passed; true when found.
  bool WaitForOutput(const std::string& text, int timeout_ms);
  // The next line of output after what earlier calls returned, without its
  // line end; empty when none comes within `timeout_ms`.
  std::string NextLine(int timeout_ms = 5000);
  const std::string& output() const { return output_; }
  void Write(const std::string& text);
  void CloseInput();
  // Closes the test's end of the output pipe: the child's next write fails.
  void CloseOutput();
  void Signal(int signal_number);
  // Waits up to `timeout_ms` for the child to end, reading its output
  // meanwhile (until its end, within the same time); false when it still runs.
  bool WaitForExit(int timeout_ms);
  int exit_code() const { return exit_code_; }  // -1 while running or after a signal
  int end_signal() const { return end_signal_; }

 private:
  void ReadAvailable(int timeout_ms);

  bool spawned_ = false;
  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
  std::string output_;
  size_t lines_taken_ = 0;  // where NextLine goes on
  int exit_code_ = -1;
  int end_signal_ = 0;
};

struct ChildResult {
  int exit_code = -1;  // exit status, or -1 when the child did not exit normally
  int signal = 0;      // the signal that ended the child, if any
  std::string output;  // standard output and standard error, interleaved
};

// Starts `argv[0]` with `argv`, gives it `input` and then the end of its
// standard input, and waits for it, at most `timeout_seconds`; a child
// still running then is killed.
ChildResult RunChild(const std::vector<std::string>& argv, int timeout_seconds = 60,
                     const std::string& input = "");

#ifdef VYN_TOOL
// The command line of the vyn program (the test program knows its path)
// with `args`.
inline std::vector<std::string> Vyn(std::vector<std::string> args) {
  args.insert(args.begin(), VYN_TOOL);
  return args;
}
inline ChildResult RunVyn(const std::vector<std::string>& args, const std::string& input = "") {
  return RunChild(Vyn(args), 60, input);
}
#endif

}  // namespace vyn::test
