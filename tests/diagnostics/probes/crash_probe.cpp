// A program that installs the crash handlers and then fails in the way its
// first argument names, for the crash tests. Linked against the shared
// library, like an application. Prints "ready <pid>" before it fails; exits
// with 3 should it survive a fault, and with 4 for an unknown kind.
#include <fcntl.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"
#include "vyn/diagnostics/memory_dump.h"
#include "vyn/log/system_log.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread.h"
#include "vyn/threads/thread_monitor.h"
#ifdef VYN_PROBE_STATIC
#include "vyn/threads/internal/thread_monitor_testing.h"
#endif

namespace {

volatile uintptr_t g_null_address = 0;
std::atomic<int> g_depth{0};

// The faults are the point: the undefined-behaviour checks stay out of them.
__attribute__((noinline, no_sanitize("undefined"))) void CrashInProbeFunction() {
  *reinterpret_cast<volatile int*>(g_null_address) = 42;
}

__attribute__((noinline, no_sanitize("undefined"))) int DivideByZero() {
  volatile int numerator = 1000;
  volatile int zero = 0;
  return numerator / zero;
}

// Recurses until the stack is gone (the bound is never reached).
__attribute__((noinline)) int Recurse(int depth) {
  volatile char frame[512];
  frame[0] = static_cast<char>(depth);
  g_depth = depth;
  if (depth == INT32_MAX) return frame[0];
  return Recurse(depth + 1) + frame[0];
}

// Threads that wait for ever, so that the dump shows more than one stack.
void StartIdleThreads(int count, std::vector<std::thread>* threads) {
  for (int i = 0; i < count; ++i) {
    threads->emplace_back([] {
      for (;;) pause();
    });
  }
}

// Kept out of line so that every frame of the call shows in the backtrace.
struct Base {
  [[gnu::noinline]] Base() { CallFromConstructor(); }
  virtual ~Base() = default;
  virtual void Hook() = 0;
  [[gnu::noinline]] void CallFromConstructor() { Hook(); }
};
struct Derived : Base {
  void Hook() override {}
};

// A view whose output crashes: it is called on the log's output thread.
class CrashingEdit : public CMemoryEdit {
 public:
  void ReplaceSel(const std::string& text, bool can_undo) override {
    if (text.find("crash now") != std::string::npos) CrashInProbeFunction();
    CMemoryEdit::ReplaceSel(text, can_undo);
  }
};

int32_t RecurseOnThread(void* /*parameter*/) { return Recurse(0); }

// A monitored thread that stamps one heartbeat and then hangs.
[[maybe_unused]] int32_t HangOnThread(void* parameter) {
  auto* thread = static_cast<CVYNMonitoredThread*>(parameter);
  thread->SignalStart();
  thread->UpdateStatus();
  return GetVYNMemoryDump().ProvokeHang();
}

void Fail(const std::string& kind, int argc, char** argv) {
  CVYNMemoryDump& dump = GetVYNMemoryDump();
  std::vector<std::thread> idle;
  if (kind == "segv") {
    CrashInProbeFunction();
  } else if (kind == "provoke") {
    dump.ProvokeCrash();
  } else if (kind == "request") {
    dump.CreateMemoryDump();
  } else if (kind == "threads") {
    StartIdleThreads(argc > 2 ? std::atoi(argv[2]) : 10, &idle);
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    CrashInProbeFunction();
  } else if (kind == "thread-segv") {
    std::thread([] { CrashInProbeFunction(); }).join();
  } else if (kind == "overflow") {
    Recurse(0);
  } else if (kind == "overflow-thread") {
    CVYNThread thread;
    thread.CreateThread(&RecurseOnThread, nullptr, nullptr, 0, 0, false);
    std::this_thread::sleep_for(std::chrono::seconds(30));
  } else if (kind == "abort") {
    std::abort();
  } else if (kind == "terminate") {
    throw std::runtime_error("nobody catches this");
  } else if (kind == "pure-virtual") {
    Derived object;
  } else if (kind == "fpe") {
    std::printf("%d\n", DivideByZero());
  } else if (kind == "ill") {
    __builtin_trap();
  } else if (kind == "trap") {
    raise(SIGTRAP);
  } else if (kind == "sys") {
    raise(SIGSYS);
  } else if (kind == "bus") {
    // A mapping beyond the end of its file: touching it is a bus error.
    char name[] = "/tmp/vyn-bus-XXXXXX";
    const int file = mkstemp(name);
    unlink(name);
    auto* page = static_cast<volatile char*>(
        mmap(nullptr, 4096, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0));
    page[0] = 1;
  } else if (kind == "all-threads") {
    // Every thread faults at the same moment.
    std::atomic<bool> go{false};
    for (int i = 0; i < 8; ++i) {
      idle.emplace_back([&go] {
        while (!go) std::this_thread::yield();
        CrashInProbeFunction();
      });
    }
    go = true;
    CrashInProbeFunction();
  } else if (kind == "log-thread") {
    CrashingEdit edit;
    GetVYNSystemLogEx().SetEnableOutput(true);
    GetVYNSystemLogEx().Initialize(&edit, "crash probe", "1");
    GetVYNSystemLogEx().AddOutput("crash now", VYN_EVENT_ERROR);
    std::this_thread::sleep_for(std::chrono::seconds(30));
  } else if (kind == "corrupt-heap") {
    // Damage the C library's heap (the size field of the next chunk), then
    // fault: the dump must still be written.
    auto* block = static_cast<char*>(std::malloc(24));
    std::memset(block, 0xA5, 64);
    CrashInProbeFunction();
  } else if (kind == "fault-during-dump") {
    // A second fault hits the very thread that writes the dump.
    const long crashing = syscall(SYS_gettid);
    idle.emplace_back([crashing] {
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
      syscall(SYS_tgkill, getpid(), crashing, SIGSEGV);
    });
    CrashInProbeFunction();
  } else if (kind == "second-crash") {
    // Another thread faults while the first dump is written.
    idle.emplace_back([] {
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
      CrashInProbeFunction();
    });
    CrashInProbeFunction();
  } else if (kind == "heap-check") {
    // Corruption found by the cyclic check (started by the test's INI file)
    // just after its first look: with dump after heap corruption the
    // process ends; without, the check logs it and the process goes on.
    CVYNSystemLogEx& log = GetVYNSystemLogEx();
    std::this_thread::sleep_for(std::chrono::milliseconds(100));
    const auto damaged = std::chrono::steady_clock::now();
    dump.ProvokeHeapCorruption();
    int64_t fatal = 0;
    for (int i = 0; i < 3000 && fatal < 2; ++i) {  // text 21, then text 9
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
      log.GetLogStatistics(nullptr, nullptr, nullptr, nullptr, &fatal, nullptr, nullptr, nullptr,
                           nullptr, nullptr);
    }
    const auto found = std::chrono::steady_clock::now() - damaged;
    std::printf(
        "found after %d ms\n",
        static_cast<int>(std::chrono::duration_cast<std::chrono::milliseconds>(found).count()));
    // Waits for the check's end: a check that is writing a dump ends the
    // process first.
    dump.Terminate();
    log.Terminate();
    std::fflush(stdout);
    std::_Exit(0);
#ifdef VYN_PROBE_STATIC
  } else if (kind == "hang") {
    vyn::seams::SetThreadMonitorTiming(3000000, 20);  // a hang after 0.3 s
    GetVYNThreadMonitor().Initialize();
    CVYNMonitoredThread thread;
    thread.SetThreadName("Hanging Worker");
    thread.CreateThread(&HangOnThread, &thread, nullptr, 0, 0, true);
    std::this_thread::sleep_for(std::chrono::seconds(60));
#endif
  } else {
    std::_Exit(4);
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return 4;
  const std::string kind = argv[1];
  // The heap check starts within Initialize: the log must run before.
  if (kind == "heap-check") GetVYNSystemLogEx().Initialize(nullptr, "crash probe", "1");
  const char* name = std::getenv("VYN_PROBE_DUMP_NAME");
  const int32_t status = GetVYNMemoryDump().Initialize(name != nullptr ? name : "crash probe");
  std::printf("ready %d %s\n", static_cast<int>(getpid()), GetVYNStatusAsString(status).c_str());
  std::fflush(stdout);
  Fail(kind, argc, argv);
  return 3;
}
