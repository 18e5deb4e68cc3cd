// The fatal-signal side of crash handling: one handler for every signal that
// ends a process abnormally (SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS,
// SIGTRAP), run on an alternate signal stack so that a thread that has used
// up its own stack still reaches it, and the runtime's pure-virtual-call hook.
//
// The handler builds the EXCEPTION_RECORD and EXCEPTION_POINTERS of the fault
// in its own frame and calls the installed filter, which normally does not
// return. A filter that returns kContinueExecution lets the interrupted
// code go on (for a signal that another thread sent, which left nothing
// broken); any other return ends the process with exit code 1 at once.
//
// Signal stacks belong to threads. Threads started through the platform
// layer get one for their lifetime (ThreadSignalStack); the thread that
// installs the handlers gets one for the rest of the process. A thread that
// the application starts by other means has none: its faults still reach the
// filter, but an overflow of its stack cannot.
//
// Thread-safety: InstallCrashSignalHandlers may be called from any thread;
// the filter is stored atomically. Handlers are process-wide and stay.
#pragma once

#include <cstdint>

#include "vyn/base/exception_pointers.h"

namespace vyn::platform {

inline constexpr int32_t kContinueExecution = -1;
using CrashFilter = int32_t (*)(EXCEPTION_POINTERS* pointers);
using PureVirtualCallHandler = void (*)();

// Routes every fatal signal to `filter`. False when the system refused a
// handler (the others stay installed).
bool InstallCrashSignalHandlers(CrashFilter filter);

// From now on a call of a pure virtual function calls `handler` (which must
// not return) instead of printing a message and terminating.
void SetPureVirtualCallHandler(PureVirtualCallHandler handler);

// Writes `value` to address 0 on the calling thread: the access violation
// that a program's fault tests provoke.
[[noreturn]] void WriteToAddressZero(unsigned char value);

// Gives the calling thread an alternate signal stack that stays until the
// process ends, unless the thread already has one.
void EnsureSignalStackForCurrentThread();

// An alternate signal stack for the lifetime of the object, on the thread
// that creates it (unless the thread already had one). Thread entry
// trampolines hold one.
class ThreadSignalStack {
 public:
  ThreadSignalStack();
  ~ThreadSignalStack();
  ThreadSignalStack(const ThreadSignalStack&) = delete;
  ThreadSignalStack& operator=(const ThreadSignalStack&) = delete;

 private:
  void* mapping_ = nullptr;
  unsigned long size_ = 0;
};

}  // namespace vyn::platform
