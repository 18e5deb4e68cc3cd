// The end-of-process path shared by the watchdog, the heap check and the
// crash handlers. Handlers installed by the crash-dump service turn the raise
// into a dump; without them the raise ends the process with its signal.
// Thread-safety: callable from any thread; the flag is atomic.
#pragma once

#include "vyn/base/exception_pointers.h"

namespace vyn::platform {

// The signal that carries the end-of-process request to the crash filter.
// It is raised on the calling thread, so that the filter sees its context.
int EndOfProcessSignal();

void MarkCrashHandlersInstalled();
bool AreCrashHandlersInstalled();

// Raises the end-of-process signal on the calling thread, carrying `reason`
// to the filter, and, should that ever return, aborts.
[[noreturn]] void RaiseEndOfProcess(_VYNEndOfProcessReason reason = VYN_END_OF_PROCESS_REQUESTED);

}  // namespace vyn::platform
