// vyn crash-test: provokes a fault in a child process that has the crash
// handlers installed, and reports how the child ended and where its dump
// went. The child is this program again, started with --child.
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <stdexcept>
#include <string>

#include "tools/minidump/minidump_reader.h"
#include "tools/vyn/commands.h"
#include "tools/vyn/number_grammar.h"
#include "vyn/core/status.h"
#include "vyn/diagnostics/memory_dump.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread_monitor.h"

extern char** environ;

namespace vyn::tool {
namespace {

// The faults are the point: the undefined-behaviour checks stay out of them.
__attribute__((noinline, no_sanitize("undefined"))) int DivideByZero() {
  volatile int numerator = 1;
  volatile int zero = 0;
  return numerator / zero;  // NOLINT(clang-analyzer-core.DivideZero)
}

__attribute__((noinline)) int Recurse(int depth) {
  volatile char frame[256];
  frame[0] = static_cast<char>(depth);
  if (depth == INT32_MAX) return frame[0];
  return Recurse(depth + 1) + frame[0];
}

struct Pure {
  Pure() { Call(); }  // NOLINT(clang-analyzer-cplusplus.PureVirtualCall): the purpose
  virtual ~Pure() = default;
  virtual void Hook() = 0;
  void Call() { Hook(); }
};
struct Impure : Pure {
  void Hook() override {}
};

const std::map<std::string, std::string>& Kinds() {
  static const std::map<std::string, std::string> kinds = {
      {"segv", "write to address 0 (ProvokeCrash)"},
      {"request", "an explicit dump (CreateMemoryDump)"},
      {"abort", "abort()"},
      {"terminate", "an exception nobody catches"},
      {"pure-virtual", "a call of a pure virtual function"},
      {"fpe", "integer division by zero"},
      {"ill", "an illegal instruction"},
      {"trap", "a breakpoint trap"},
      {"bus", "a bus error"},
      {"sys", "a bad system call signal"},
      {"overflow", "a stack overflow"},
      {"heap", "a damaged heap found by the heap check"},
      {"hang", "a hung thread found by the watchdog (takes over 300 s)"},
  };
  return kinds;
}

[[noreturn]] void RunChild(const std::string& kind, int64_t dump_type) {
  CVYNMemoryDump& dump = GetVYNMemoryDump();
  const int32_t status = dump.Initialize("vyn crash-test");
  if (status != VYN_STATUS_SUCCESS) {
    std::fprintf(stderr, "crash handlers not installed: %s\n",
                 GetVYNStatusAsString(status).c_str());
    std::_Exit(2);
  }
  if (dump_type >= 0) dump.SetDumpType(static_cast<uint32_t>(dump_type));
  std::fflush(stdout);
  if (kind == "segv") dump.ProvokeCrash();
  if (kind == "request") dump.CreateMemoryDump();
  if (kind == "abort") std::abort();
  if (kind == "terminate") throw std::runtime_error("vyn crash-test");
  if (kind == "pure-virtual") Impure object;
  if (kind == "fpe") std::printf("%d\n", DivideByZero());
  if (kind == "ill") __builtin_trap();
  if (kind == "trap") raise(SIGTRAP);
  if (kind == "bus") raise(SIGBUS);
  if (kind == "sys") raise(SIGSYS);
  if (kind == "overflow") Recurse(0);
  if (kind == "heap") {
    dump.SetDumpAfterHeapCorruption(true);
    dump.ProvokeHeapCorruption();
    dump.SetCyclicHeapCheck(1);
    pause();
  }
  if (kind == "hang") {
    GetVYNThreadMonitor().Initialize();
    CVYNMonitoredThread thread;
    thread.CreateThread(
        [](void*) -> int32_t {
          GetVYNMemoryDump().ProvokeHang();
          return 0;
        },
        nullptr, nullptr, 0, 0, false);
    pause();
  }
  std::_Exit(3);  // the fault did not end the process
}

// Dump files by name with their modification times: a dump of the same
// second replaces a file of the same name.
std::map<std::string, int64_t> DumpFiles(const std::string& folder) {
  std::map<std::string, int64_t> files;
  std::error_code error;
  for (const auto& item : std::filesystem::directory_iterator(folder, error)) {
    if (item.path().extension() != ".dmp") continue;
    const auto modified = std::filesystem::last_write_time(item.path(), error);
    files[item.path().filename().string()] = modified.time_since_epoch().count();
  }
  return files;
}

void RunParent(const std::string& kind, const std::string& folder, int64_t dump_type) {
  if (Kinds().count(kind) == 0) throw CLI::ValidationError("KIND", "unknown kind '" + kind + "'");
  const std::string dumps = folder + "/Dumps";
  const std::map<std::string, int64_t> before = DumpFiles(dumps);
  std::string self(4096, '\0');
  const ssize_t length = readlink("/proc/self/exe", self.data(), self.size() - 1);
  if (length <= 0) throw CLI::RuntimeError("cannot find this program", 1);
  self.resize(static_cast<size_t>(length));
  const std::string type_text = std::to_string(dump_type);
  char* argv[] = {self.data(),
                  const_cast<char*>("crash-test"),
                  const_cast<char*>("--child"),
                  const_cast<char*>(kind.c_str()),
                  const_cast<char*>("--dump-type"),
                  const_cast<char*>(type_text.c_str()),
                  nullptr};
  // Without a type of its own the child keeps the configured one.
  if (dump_type < 0) argv[4] = nullptr;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  pid_t child = -1;
  const int spawned = posix_spawn(&child, self.c_str(), &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) throw CLI::RuntimeError("cannot start the child process", 1);
  std::printf("Provoking %s in process %d (%s)\n", kind.c_str(), static_cast<int>(child),
              Kinds().at(kind).c_str());
  std::fflush(stdout);
  int status = 0;
  while (waitpid(child, &status, 0) < 0) {
  }
  if (WIFEXITED(status)) {
    std::printf("The child ended with exit code %d\n", WEXITSTATUS(status));
  } else if (WIFSIGNALED(status)) {
    std::printf("The child was killed by signal %d\n", WTERMSIG(status));
  }
  bool found = false;
  for (const auto& [name, modified] : DumpFiles(dumps)) {
    const auto old = before.find(name);
    if (old != before.end() && old->second == modified) continue;
    found = true;
    std::string path = dumps;
    path += "/";
    path += name;
    std::printf("Dump: %s\n", path.c_str());
    minidump::DumpSummary summary;
    std::string error;
    if (minidump::ReadMinidump(path, &summary, &error)) {
      std::printf("%s", minidump::FormatSummary(summary).c_str());
    } else {
      std::printf("%s\n", error.c_str());
    }
  }
  if (!found) {
    std::printf("No new dump in %s\n", dumps.c_str());
    throw CLI::RuntimeError(1);
  }
}

}  // namespace

void AddCrashTestCommand(CLI::App& app) {
  CLI::App* command = app.add_subcommand(
      "crash-test", "Provoke a fault in a child process and show the dump it leaves");
  static std::string kind;
  static std::string folder = ".";
  static bool child = false;
  static int64_t dump_type = -1;  // -1: the configured type
  std::string kinds = "Kinds:\n";
  for (const auto& [name, description] : Kinds()) {
    kinds.append("  ").append(name).append(": ").append(description).append("\n");
  }
  kinds += "The dump lands in FOLDER/Dumps; its summary follows.";
  command->add_option("KIND", kind, "What to provoke (see below)")->required();
  command->add_option("-C,--folder", folder, "Folder of the child (Dumps is created below it)")
      ->check(CLI::ExistingDirectory);
  command
      ->add_option("--dump-type", dump_type,
                   "Minidump flags, e.g. 0 for stacks only, 2 for full memory")
      ->transform(NumberIn(0, 0xFFFFFFFF));
  command->add_flag("--child", child)->group("");  // the child's own invocation
  command->footer(kinds);
  command->callback([] {
    if (child) RunChild(kind, dump_type);
    RunParent(kind, folder, dump_type);
  });
}

}  // namespace vyn::tool
