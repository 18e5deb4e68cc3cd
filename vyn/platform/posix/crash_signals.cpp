#include "vyn/platform/crash_signals.h"

#include <signal.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cstdlib>
#include <exception>

namespace vyn::platform {
namespace {

constexpr int kFatalSignals[] = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS, SIGTRAP};

std::atomic<CrashFilter> g_filter{nullptr};
std::atomic<PureVirtualCallHandler> g_pure_virtual_handler{nullptr};

// Room for the dump procedure (a few kilobytes of text buffers and the
// start of a helper process) even in instrumented builds.
size_t SignalStackSize() {
  const long minimum = sysconf(_SC_SIGSTKSZ);
  const size_t wanted = size_t{64} * 1024;
  return minimum > 0 && static_cast<size_t>(minimum) * 4 > wanted ? static_cast<size_t>(minimum) * 4
                                                                  : wanted;
}

bool HasSignalStack() {
  stack_t current{};
  return sigaltstack(nullptr, &current) == 0 && (current.ss_flags & SS_DISABLE) == 0;
}

// Maps a stack with an inaccessible page below it, so that an overflow of
// the signal stack itself faults instead of overwriting other memory.
void* MapSignalStack(size_t size) {
  const size_t page = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  void* mapping = mmap(nullptr, size + page, PROT_READ | PROT_WRITE,
                       MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
  if (mapping == MAP_FAILED) return nullptr;
  mprotect(mapping, page, PROT_NONE);
  stack_t stack{};
  stack.ss_sp = static_cast<char*>(mapping) + page;
  stack.ss_size = size;
  if (sigaltstack(&stack, nullptr) != 0) {
    munmap(mapping, size + page);
    return nullptr;
  }
  return mapping;
}

bool CarriesFaultAddress(int signal, int code) {
  if (code <= 0) return false;  // sent by a process, not raised by the CPU
  return signal == SIGSEGV || signal == SIGBUS || signal == SIGFPE || signal == SIGILL ||
         signal == SIGTRAP;
}

void OnFatalSignal(int signal, siginfo_t* info, void* context) {
  EXCEPTION_RECORD record{};
  record.ExceptionCode = static_cast<uint32_t>(signal);
  record.ExceptionFlags = static_cast<uint32_t>(info->si_code);
  if (CarriesFaultAddress(signal, info->si_code)) record.ExceptionAddress = info->si_addr;
  if (signal == SIGTRAP && info->si_code == SI_QUEUE && info->si_pid == getpid()) {
    record.NumberParameters = 2;
    record.ExceptionInformation[0] = VYN_END_OF_PROCESS_CODE;
    record.ExceptionInformation[1] = static_cast<uintptr_t>(info->si_value.sival_int);
  }
  EXCEPTION_POINTERS pointers{&record, context};
  const CrashFilter filter = g_filter.load();
  if (filter != nullptr && filter(&pointers) == kContinueExecution) return;
  // Any other return would let a fault repeat its instruction and fault
  // again: end here.
  _exit(1);
}

}  // namespace

bool InstallCrashSignalHandlers(CrashFilter filter) {
  g_filter.store(filter);
  struct sigaction action {};
  action.sa_sigaction = &OnFatalSignal;
  // SA_NODEFER: a fault inside the dump procedure re-enters the filter,
  // which then ends the process instead of the kernel killing it silently.
  action.sa_flags = SA_SIGINFO | SA_ONSTACK | SA_NODEFER;
  // Everything else waits while the dump is written (a SIGCHLD, a timer);
  // the fatal signals stay open for the re-entry above.
  sigfillset(&action.sa_mask);
  for (const int signal : kFatalSignals) sigdelset(&action.sa_mask, signal);
  bool all = true;
  for (const int signal : kFatalSignals) {
    if (sigaction(signal, &action, nullptr) != 0) all = false;
  }
  return all;
}

void SetPureVirtualCallHandler(PureVirtualCallHandler handler) {
  g_pure_virtual_handler.store(handler);
}

// The address comes from a volatile, so the compiler cannot see that it is
// null and replace the store by a trap instruction; the checks of the
// sanitizers are off here, the fault is the point.
__attribute__((no_sanitize("address", "undefined"))) void WriteToAddressZero(unsigned char value) {
  volatile uintptr_t address = 0;
  // NOLINTNEXTLINE(performance-no-int-to-ptr,clang-analyzer-core.NullDereference): the purpose
  *reinterpret_cast<volatile unsigned char*>(address) = value;
  std::abort();  // address 0 was mapped after all
}

void EnsureSignalStackForCurrentThread() {
  if (!HasSignalStack()) MapSignalStack(SignalStackSize());
}

ThreadSignalStack::ThreadSignalStack() {
  if (HasSignalStack()) return;
  size_ = SignalStackSize();
  mapping_ = MapSignalStack(size_);
}

ThreadSignalStack::~ThreadSignalStack() {
  if (mapping_ == nullptr) return;
  stack_t off{};
  off.ss_flags = SS_DISABLE;
  sigaltstack(&off, nullptr);
  munmap(mapping_, size_ + static_cast<size_t>(sysconf(_SC_PAGESIZE)));
}

}  // namespace vyn::platform

// The runtime calls this when a pure virtual function is called (an object
// used during its construction or destruction, or after it was deleted).
// Defined here so that the crash service can take the call over; without it
// the behaviour is the runtime's own: a message and std::terminate.
extern "C" __attribute__((visibility("default"), noreturn)) void __cxa_pure_virtual() {
  const vyn::platform::PureVirtualCallHandler handler =
      vyn::platform::g_pure_virtual_handler.load();
  if (handler != nullptr) handler();
  static const char kMessage[] = "pure virtual method called\n";
  const ssize_t ignored = write(2, kMessage, sizeof kMessage - 1);
  static_cast<void>(ignored);
  std::terminate();
}
