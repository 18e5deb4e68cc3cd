// What ends an interactive program from outside: Ctrl-C, a termination
// request and a hang-up of its terminal (SIGINT, SIGTERM, SIGHUP), and the
// reader of its output going away. Programs wait for these next to their
// own work, so that they wind down cleanly (stop threads, close ports,
// remove files they made) instead of ending at once.
//
// Ownership: a StopRequests object owns its descriptor; one per process.
// Thread-safety: construct it before starting any thread (the requests are
// blocked for the constructing thread and threads started afterwards inherit
// that); the rest belongs to the constructing thread. Destruction restores
// the signal mask and the broken-pipe action; stop the other threads first.
#pragma once

#include <memory>

namespace vyn::platform {

class StopRequests {
 public:
  StopRequests();
  ~StopRequests();
  StopRequests(const StopRequests&) = delete;
  StopRequests& operator=(const StopRequests&) = delete;

  // Becomes readable while a request is pending; -1 when requests cannot be
  // watched (they then end the process as usual).
  int descriptor() const;
  // Takes the pending request, if any, so the descriptor quiets down again.
  void Take();

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// Writing to an output whose reader has gone fails with an error instead of
// ending the process.
void IgnoreBrokenPipe();

// The events to ask poll() for on an output watched for its reader going
// away (none: only errors and hang-ups, which poll reports anyway), and
// whether the events it reported mean exactly that.
constexpr short kReaderGoneWatch = 0;
bool ReaderGone(short reported_events);

// True when `descriptor`, a pipe, socket or terminal, has lost its reader;
// found without writing or waiting. Files never report it.
bool OutputReaderGone(int descriptor);

}  // namespace vyn::platform
