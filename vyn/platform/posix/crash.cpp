#include "vyn/platform/crash.h"

#include <signal.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>

namespace vyn::platform {
namespace {

std::atomic<bool> g_handlers_installed{false};

}  // namespace

// SIGTRAP: no ordinary fault produces it, so the crash filter can tell an
// explicit end of process from a real fault.
int EndOfProcessSignal() { return SIGTRAP; }

void MarkCrashHandlersInstalled() { g_handlers_installed.store(true); }

bool AreCrashHandlersInstalled() { return g_handlers_installed.load(); }

void RaiseEndOfProcess(_VYNEndOfProcessReason reason) {
  // A queued signal to this very thread: the handler runs on it before the
  // call returns, and its si_value carries the reason to the filter.
  siginfo_t info{};
  info.si_signo = EndOfProcessSignal();
  info.si_code = SI_QUEUE;
  info.si_pid = getpid();
  info.si_uid = getuid();
  info.si_value.sival_int = static_cast<int>(reason);
  syscall(SYS_rt_tgsigqueueinfo, getpid(), syscall(SYS_gettid), EndOfProcessSignal(), &info);
  std::abort();
}

}  // namespace vyn::platform
