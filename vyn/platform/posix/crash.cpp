#include "vyn/platform/crash.h"

#include <pthread.h>
#include <signal.h>

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

void RaiseEndOfProcess() {
  pthread_kill(pthread_self(), EndOfProcessSignal());
  std::abort();
}

}  // namespace vyn::platform
