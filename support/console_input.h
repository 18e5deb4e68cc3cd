// Standard input, line by line, for programs that run until their input ends
// or the user presses Ctrl-C: an interrupt, termination or hang-up becomes an
// ordinary result of ReadLine instead of ending the process at once, so the
// program can clean up (remove files it made, stop its threads). For the
// same reason, writing to an output that nobody reads any more (a pipe whose
// reader has gone) fails with an error instead of ending the process.
//
// Construct the object before starting any thread; it watches the stop
// requests through vyn/platform/stop_requests.h, whose rules it follows.
//
// Ownership: owns its StopRequests. One object per process.
// Thread-safety: none; one thread constructs, reads and destroys it.
#pragma once

#include <memory>
#include <string>

namespace vyn::platform {
class StopRequests;
}

namespace vyn::support {

class ConsoleInput {
 public:
  // kOutputClosed: the reader of standard output (a pipe) has gone, so
  // nobody sees what the program would answer.
  enum class Result { kLine, kEndOfInput, kInterrupted, kOutputClosed };

  ConsoleInput();
  ~ConsoleInput();
  ConsoleInput(const ConsoleInput&) = delete;
  ConsoleInput& operator=(const ConsoleInput&) = delete;

  // Waits for the next line (without its line end; a last line without one
  // counts too), the end of input, an interrupt, or a closed output.
  Result ReadLine(std::string* line);

 private:
  std::unique_ptr<platform::StopRequests> stops_;
  std::string buffered_;
  bool end_of_input_ = false;
};

}  // namespace vyn::support
