// Ctrl-C and termination requests as something a program waits for, so that
// it can wind down cleanly (cancel what runs, close ports, remove files)
// instead of ending at once.
//
// Construct the object before starting any thread: it watches SIGINT,
// SIGTERM and SIGHUP through vyn/platform/stop_requests.h, whose rules it
// follows (the signals are blocked for threads started afterwards).
//
// Ownership: owns its descriptors. One object per process.
// Thread-safety: Wake may be called from any thread; everything else belongs
// to the constructing thread.
#pragma once

#include <memory>

namespace vyn::support {

class InterruptWatch {
 public:
  enum class Event { kInterrupted, kWoken, kTimedOut, kInputEnded, kOutputClosed };

  InterruptWatch();
  ~InterruptWatch();
  InterruptWatch(const InterruptWatch&) = delete;
  InterruptWatch& operator=(const InterruptWatch&) = delete;

  // Waits for an interrupt or termination request, or for Wake, at most
  // `timeout_ms` (negative: no limit). A wake-up that came before the call
  // counts; it is used up by the call that sees it.
  Event Wait(int timeout_ms = -1);
  // Ends a Wait on another thread (the work it waits for is done).
  void Wake();

  // From now on Wait also ends with kInputEnded when `descriptor` (standard
  // input, say) reaches its end; what it delivers before is read and thrown
  // away. Reported once.
  void WatchInputEnd(int descriptor);
  // From now on Wait also ends with kOutputClosed once the reader of the pipe
  // or socket `descriptor` (standard output, say) has gone; other kinds of
  // output never report it.
  void WatchOutputClosed(int descriptor);

 private:
  struct State;
  std::unique_ptr<State> state_;
};

// True when standard error goes to a terminal (so that a progress bar may
// redraw its line).
bool StandardErrorIsTerminal();

}  // namespace vyn::support
