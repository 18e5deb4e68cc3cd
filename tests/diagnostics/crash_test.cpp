// Crashes of a real program linked against the shared library: each case
// runs the crash probe as a child process in a folder of its own and checks
// how it ended, the dump it left (with our reader and with LLDB) and what
// the user was told.
#include <gtest/gtest.h>
#include <signal.h>

#include <cctype>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <set>
#include <string>

#include "tests/diagnostics/crash_test_support.h"
#include "tests/support/temp_dir.h"
#include "tools/minidump/minidump_reader.h"
#include "vyn/diagnostics/memory_dump.h"

namespace vyn::test {
namespace {

using minidump::DumpSummary;

DumpSummary Read(const std::string& path) {
  DumpSummary summary;
  std::string error;
  EXPECT_TRUE(minidump::ReadMinidump(path, &summary, &error)) << error;
  return summary;
}

std::set<uint32_t> ThreadIds(const DumpSummary& summary) {
  std::set<uint32_t> ids;
  for (const minidump::DumpThread& thread : summary.threads) ids.insert(thread.id);
  return ids;
}

// The ids of LLDB's "thread list" lines ("thread #2: tid = 4711, ...").
std::set<uint32_t> LldbThreadIds(const std::string& output) {
  std::set<uint32_t> ids;
  const std::string marker = ": tid = ";
  for (size_t at = output.find(marker); at != std::string::npos; at = output.find(marker, at + 1)) {
    ids.insert(
        static_cast<uint32_t>(std::strtoul(output.c_str() + at + marker.size(), nullptr, 10)));
  }
  return ids;
}

// "<folder>/Dumps/crash probe YYYY-MM-DD HH-MM-SS (01).dmp", digits checked.
bool IsFirstDumpName(const std::string& path) {
  const std::string prefix = "/Dumps/crash probe ";
  const std::string pattern = "####-##-## ##-##-## (01).dmp";
  const size_t at = path.find(prefix);
  if (at == std::string::npos || path.size() != at + prefix.size() + pattern.size()) return false;
  for (size_t i = 0; i < pattern.size(); ++i) {
    const char c = path[at + prefix.size() + i];
    if (pattern[i] == '#' ? !std::isdigit(static_cast<unsigned char>(c)) : c != pattern[i]) {
      return false;
    }
  }
  return true;
}

TEST(CrashTest, EveryFatalConditionEndsWithExitCodeOneAndADump) {
  const uint32_t kEnd = 0xC0000025;
  struct Case {
    std::string kind;
    int signal;
    uint32_t reason;  // the end-of-process reason, 0 for a real fault
  };
  const Case cases[] = {
      {"segv", SIGSEGV, 0},
      {"provoke", SIGSEGV, 0},
      {"thread-segv", SIGSEGV, 0},
      {"overflow", SIGSEGV, 0},
      {"overflow-thread", SIGSEGV, 0},
      {"abort", SIGABRT, 0},
      {"terminate", SIGABRT, 0},
      {"fpe", SIGFPE, 0},
      {"ill", SIGILL, 0},
      {"trap", SIGTRAP, 0},
      {"sys", SIGSYS, 0},
      {"bus", SIGBUS, 0},
      {"request", SIGTRAP, VYN_END_OF_PROCESS_REQUESTED},
      {"pure-virtual", SIGTRAP, VYN_END_OF_PROCESS_PURE_VIRTUAL},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.kind);
    TempDir folder;
    const ProbeRun run = RunProbe(folder.path(), {c.kind});
    EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
    ASSERT_EQ(run.dumps.size(), 1u) << run.result.output;
    EXPECT_TRUE(IsFirstDumpName(run.dumps[0])) << run.dumps[0];
    const DumpSummary dump = Read(run.dumps[0]);
    ASSERT_TRUE(dump.has_exception);
    EXPECT_EQ(dump.exception.code, static_cast<uint32_t>(c.signal));
    EXPECT_EQ(ThreadIds(dump).count(dump.exception_thread), 1u);
    EXPECT_EQ(dump.flags, CVYNMemoryDump::kDefaultDumpType);
    if (c.reason != 0) {
      ASSERT_EQ(dump.exception.parameter_count, 2u);
      EXPECT_EQ(dump.exception.parameters[0], kEnd);
      EXPECT_EQ(dump.exception.parameters[1], c.reason);
    }
  }
}

TEST(CrashTest, LldbOpensEveryDumpWithEveryThreadsBacktrace) {
  struct Case {
    std::vector<std::string> arguments;
    std::vector<std::string> expected;  // in LLDB's backtraces
    bool complete;                      // every backtrace reaches its thread's start
  };
  const Case cases[] = {
      {{"threads", "6"}, {"stop reason = signal SIGSEGV", "CrashInProbeFunction", "main"}, true},
      // Only the innermost part of an overflowed stack is kept.
      {{"overflow"}, {"stop reason = signal SIGSEGV", "Recurse"}, false},
      {{"log-thread"}, {"CrashingEdit::ReplaceSel", "RunOutputThread"}, true},
      {{"pure-virtual"},
       {"stop reason = signal SIGTRAP", "__cxa_pure_virtual", "CallFromConstructor"},
       true},
      {{"corrupt-heap"}, {"stop reason = signal SIGSEGV", "CrashInProbeFunction"}, true},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.arguments[0]);
    TempDir folder;
    const ProbeRun run = RunProbe(folder.path(), c.arguments);
    EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
    ASSERT_EQ(run.dumps.size(), 1u);
    const DumpSummary dump = Read(run.dumps[0]);
    const std::string lldb = AskLldb(VYN_CRASH_PROBE, run.dumps[0],
                                     {"thread list", "thread backtrace all", "image list"});
    ASSERT_NE(lldb.find("was loaded"), std::string::npos) << lldb;
    for (const std::string& text : c.expected) {
      EXPECT_NE(lldb.find(text), std::string::npos) << text << "\n" << lldb;
    }
    // LLDB sees the threads and modules our reader sees, and every thread's
    // backtrace reaches its start.
    EXPECT_EQ(LldbThreadIds(lldb), ThreadIds(dump)) << lldb;
    for (const minidump::DumpModule& module : dump.modules) {
      EXPECT_NE(lldb.find(module.name), std::string::npos) << module.name;
    }
    size_t started = 0;
    for (size_t at = 0; (at = lldb.find("start_thread", at)) != std::string::npos; ++at) ++started;
    for (size_t at = 0; (at = lldb.find("__libc_start_call_main", at)) != std::string::npos; ++at) {
      ++started;
    }
    if (c.complete) {
      EXPECT_GE(started, dump.threads.size()) << lldb;
    }
  }
}

TEST(CrashTest, CrashesDuringACrashStillEndTheProcessWithADump) {
  // Every thread at once; a second thread while the dump is written; a
  // fault of the dumping thread itself; a damaged C library heap.
  for (const std::string kind :
       {"all-threads", "second-crash", "fault-during-dump", "corrupt-heap"}) {
    SCOPED_TRACE(kind);
    TempDir folder;
    const ProbeRun run = RunProbe(folder.path(), {kind});
    EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
    ASSERT_GE(run.dumps.size(), 1u);
    EXPECT_NE(run.dumps[0].find("(01).dmp"), std::string::npos);
    const DumpSummary dump = Read(run.dumps[0]);
    EXPECT_TRUE(dump.has_exception);
    EXPECT_GE(dump.threads.size(), 1u);
  }
}

TEST(CrashTest, TwoProgramsCrashingInOneFolderLeaveWholeDumps) {
  TempDir folder;
  const ProbeRun run =
      RunProbe(folder.path(), {"-c", "\"$0\" threads 4 & \"$0\" threads 4 & wait", VYN_CRASH_PROBE},
               {}, "/bin/sh");
  ASSERT_GE(run.dumps.size(), 1u);
  for (const std::string& path : run.dumps) {
    const DumpSummary dump = Read(path);
    EXPECT_EQ(dump.threads.size(), 5 + kRuntimeThreads) << path;
  }
}

TEST(CrashTest, ManyThreadsAreAllInTheDump) {
  TempDir folder;
  WriteFile(folder.File("VYN.ini"), "[VYNMemoryDump]\nDumpType=0\n");
  const ProbeRun run = RunProbe(folder.path(), {"threads", "200"});
  EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
  ASSERT_EQ(run.dumps.size(), 1u);
  const DumpSummary dump = Read(run.dumps[0]);
  EXPECT_EQ(dump.threads.size(), 201 + kRuntimeThreads);
  for (const minidump::DumpThread& thread : dump.threads) {
    EXPECT_TRUE(thread.has_context);
    EXPECT_GT(thread.stack_size, 0u) << thread.id;
  }
}

TEST(CrashTest, IniSettingsChooseTheDumpAndGarbageReadsAsAtoiDoes) {
  struct Case {
    std::string ini;
    uint64_t flags;
    bool full_memory;
  };
  const Case cases[] = {
      {"DumpType=0x15", 0, false},  // decimal only: 0
      {"DumpType=2", MiniDumpWithFullMemory, true},
      {"DumpType= +4097 trailing", 4097, false},
      {"DumpType=garbage\nHeapCheckInterval=-5\nMessageBoxAfterDump=yes", 0, false},
      {"DumpType=", CVYNMemoryDump::kDefaultDumpType, false},  // empty: unchanged
  };
  uint64_t stack_only_bytes = 0;
  for (const Case& c : cases) {
    SCOPED_TRACE(c.ini);
    TempDir folder;
    WriteFile(folder.File("VYN.ini"), "[VYNMemoryDump]\n" + c.ini + "\n");
    const ProbeRun run = RunProbe(folder.path(), {"segv"});
    EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
    // "yes" reads as 0: no message box; -5 counts as 0: no heap check.
    EXPECT_EQ(run.result.output.find("critical problem"), std::string::npos);
    ASSERT_EQ(run.dumps.size(), 1u);
    const DumpSummary dump = Read(run.dumps[0]);
    EXPECT_EQ(dump.flags, c.flags);
    EXPECT_EQ(dump.HasStream(minidump::kMemory64ListStream), c.full_memory);
    EXPECT_EQ(dump.HasStream(minidump::kHandleDataStream), (c.flags & MiniDumpWithHandleData) != 0);
    if (c.flags == 0) stack_only_bytes = dump.memory_bytes;
    if (c.full_memory) {
      EXPECT_GT(dump.memory64_bytes, 10 * stack_only_bytes);
    }
  }
}

TEST(CrashTest, MessageBoxTellsWhereTheDumpWentWithQuotesIntact) {
  TempDir folder;
  WriteFile(folder.File("VYN.ini"), "[VYNMemoryDump]\nMessageBoxAfterDump=1\n");
  const std::string name = "say \"cheese\"";
  const ProbeRun run = RunProbe(folder.path(), {"segv"}, {"VYN_PROBE_DUMP_NAME=" + name});
  EXPECT_EQ(run.result.exit_code, 1);
  ASSERT_EQ(run.dumps.size(), 1u);
  // Shown by the host process (without a display: on standard error), with
  // CR LF shown as line feeds.
  EXPECT_NE(run.result.output.find(name +
                                   "\nThe application has detected a critical problem and "
                                   "needs to close.\n\nThe dumpfile has been saved to the "
                                   "following file:\n\n" +
                                   run.dumps[0] + "\n"),
            std::string::npos)
      << run.result.output;

  const ChildResult bare =
      RunChild({VYN_RUNDLL, std::string(VYN_SHARED_LIBRARY) + ",ShowMessageBox"});
  EXPECT_EQ(bare.exit_code, 0);
  EXPECT_EQ(bare.output, "Unspecified caption.\nUnspecified text.\n");
  const ChildResult missing =
      RunChild({VYN_RUNDLL, std::string(VYN_SHARED_LIBRARY) + ",NoSuchEntry"});
  EXPECT_EQ(missing.exit_code, 1);
}

TEST(CrashTest, NoPlaceForTheDumpStillEndsTheProcessAndSaysWhy) {
  {
    // "Dumps" is a file: the dump file cannot be created.
    TempDir folder;
    WriteFile(folder.File("Dumps"), "not a folder");
    WriteFile(folder.File("VYN.ini"), "[VYNMemoryDump]\nMessageBoxAfterDump=1\n");
    const ProbeRun run = RunProbe(folder.path(), {"segv"});
    EXPECT_EQ(run.result.exit_code, 1);
    EXPECT_NE(run.result.output.find("The dumpfile could not be created (GetLastError() = "
                                     "0x00000014):\n\n" +
                                     folder.path() + "/Dumps/crash probe "),
              std::string::npos)
        << run.result.output;
  }
  {
    // No dump writer to be found: no file, and the user is told.
    TempDir folder;
    WriteFile(folder.File("VYN.ini"), "[VYNMemoryDump]\nMessageBoxAfterDump=1\n");
    const ProbeRun run = RunProbe(folder.path(), {"segv"}, {}, VYN_CRASH_PROBE_STATIC);
    EXPECT_EQ(run.result.exit_code, 1);
    EXPECT_TRUE(run.dumps.empty());
    EXPECT_NE(run.result.output.find("The application has detected a critical problem and needs to "
                                     "close.\n\nThe dumpfile could not be created because "
                                     "DBGHELP.DLL could not be found."),
              std::string::npos)
        << run.result.output;
  }
  {
    // A full disk, as a file-size limit: the failure text replaces the dump.
    TempDir folder;
    WriteFile(folder.File("VYN.ini"), "[VYNMemoryDump]\nMessageBoxAfterDump=1\n");
    const ProbeRun run = RunProbe(
        folder.path(), {"-c", "ulimit -f 8 && exec \"$0\" segv", VYN_CRASH_PROBE}, {}, "/bin/sh");
    EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
    ASSERT_EQ(run.dumps.size(), 1u);
    const std::string content = ReadFile(run.dumps[0]);
    EXPECT_EQ(content.rfind("The dumpfile could not be saved to the following file (GetLastError() "
                            "= 0x0000001b):\r\n\r\n" +
                                run.dumps[0],
                            0),
              0u)
        << content;
    EXPECT_NE(run.result.output.find("could not be saved"), std::string::npos);
  }
}

TEST(CrashTest, HeapCheckLogsCorruptionOrEndsTheProcessAsConfigured) {
  {
    TempDir folder;
    WriteFile(folder.File("VYN.ini"), "[VYNMemoryDump]\nHeapCheckInterval=1\n");
    const ProbeRun run = RunProbe(folder.path(), {"heap-check"});
    EXPECT_EQ(run.result.exit_code, 0) << run.result.output;
    EXPECT_NE(run.result.output.find("survived"), std::string::npos);
    EXPECT_TRUE(run.dumps.empty());
    std::string logged;
    std::error_code ignored;
    for (const auto& item : std::filesystem::directory_iterator(folder.File("Logs"), ignored)) {
      logged += ReadFile(item.path().string());
    }
    EXPECT_NE(logged.find("The cyclic heap check has been started."), std::string::npos);
    EXPECT_NE(logged.find("The application is going to provoke a heap corruption."),
              std::string::npos);
    EXPECT_NE(logged.find("The application has detected a heap corruption."), std::string::npos)
        << logged;
  }
  {
    TempDir folder;
    WriteFile(folder.File("VYN.ini"),
              "[VYNMemoryDump]\nHeapCheckInterval=1\nDumpAfterHeapCorruption=1\n");
    const ProbeRun run = RunProbe(folder.path(), {"heap-check"});
    EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
    ASSERT_EQ(run.dumps.size(), 1u);
    const DumpSummary dump = Read(run.dumps[0]);
    ASSERT_TRUE(dump.has_exception);
    EXPECT_EQ(dump.exception.parameters[1], VYN_END_OF_PROCESS_HEAP_CORRUPTION);
    for (const minidump::DumpThread& thread : dump.threads) {
      if (thread.id == dump.exception_thread) {
        EXPECT_EQ(thread.name, "VYN Heap Check");
      }
    }
  }
}

TEST(CrashTest, HungMonitoredThreadEndsTheProcessWithADumpNamingTheHang) {
  TempDir folder;
  const ProbeRun run = RunProbe(folder.path(), {"hang"}, {"VYN_LIBEXEC_DIR=" VYN_HELPER_DIR},
                                VYN_CRASH_PROBE_STATIC);
  EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
  ASSERT_EQ(run.dumps.size(), 1u);
  const DumpSummary dump = Read(run.dumps[0]);
  ASSERT_TRUE(dump.has_exception);
  ASSERT_EQ(dump.exception.parameter_count, 2u);
  EXPECT_EQ(dump.exception.parameters[1], VYN_END_OF_PROCESS_HUNG_THREAD);
  std::map<uint32_t, std::string> names;
  for (const minidump::DumpThread& thread : dump.threads) names[thread.id] = thread.name;
  EXPECT_EQ(names[dump.exception_thread], "VYN Thread Moni");  // the kernel keeps 15 characters
  const std::string lldb = AskLldb(VYN_CRASH_PROBE_STATIC, run.dumps[0], {"thread backtrace all"});
  EXPECT_NE(lldb.find("CVYNThreadMonitor::CheckObjects"), std::string::npos) << lldb;
  EXPECT_NE(lldb.find("CVYNMemoryDump::ProvokeHang"), std::string::npos) << lldb;
}

}  // namespace
}  // namespace vyn::test
