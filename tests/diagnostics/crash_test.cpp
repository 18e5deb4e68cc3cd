// Crashes of a real program linked against the shared library: each case
// runs the crash probe as a child process in a folder of its own (the cases
// of a test all at once) and checks how it ended, the dump it left (with our
// reader and with LLDB) and what the user was told.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cctype>
#include <cstdlib>
#include <ctime>
#include <map>
#include <random>
#include <set>
#include <string>

#include "tests/diagnostics/crash_test_support.h"
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

std::map<uint32_t, std::string> ThreadNames(const DumpSummary& summary) {
  std::map<uint32_t, std::string> names;
  for (const minidump::DumpThread& thread : summary.threads) names[thread.id] = thread.name;
  return names;
}

bool Contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

std::string LocalTimeNow() {
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  localtime_r(&now, &local);
  char text[32];
  std::strftime(text, sizeof text, "%Y-%m-%d %H-%M-%S", &local);
  return text;
}

// "<folder>/Dumps/crash probe YYYY-MM-DD HH-MM-SS (01).dmp", written between
// the local times `from` and `to`.
void ExpectFirstDumpName(const ProbeRun& run, const std::string& from, const std::string& to) {
  const std::string prefix = run.folder->path() + "/Dumps/crash probe ";
  const std::string& path = run.dumps[0];
  ASSERT_EQ(path.size(), prefix.size() + from.size() + 9) << path;
  EXPECT_EQ(path.substr(0, prefix.size()), prefix);
  const std::string time = path.substr(prefix.size(), from.size());
  EXPECT_TRUE(from <= time && time <= to) << time << " not within " << from << " .. " << to;
  EXPECT_EQ(path.substr(prefix.size() + from.size()), " (01).dmp");
}

// Every case also shows LLDB opening its dump: the threads and modules our
// reader sees, and the backtraces.
TEST(CrashTest, EveryFatalConditionEndsWithExitCodeOneAndOneDumpThatLldbOpens) {
  const uint32_t kEnd = 0xC0000025;
  struct Case {
    Probe probe;
    int signal;                          // 0: a crash during a crash, whichever fault comes first
    uint32_t reason;                     // the end-of-process reason, 0 for a real fault
    std::vector<std::string> in_lldb{};  // texts of LLDB's backtraces
    bool complete = true;                // every backtrace reaches its thread's start
  };
  const std::string kSegv = "stop reason = signal SIGSEGV";
  const std::vector<Case> cases = {
      {{{"segv"}}, SIGSEGV, 0},
      {{{"threads", "6"}}, SIGSEGV, 0, {kSegv, "CrashInProbeFunction", "main"}},
      {{{"provoke"}}, SIGSEGV, 0},
      {{{"thread-segv"}}, SIGSEGV, 0},
      // Only the innermost part of an overflowed stack is kept.
      {{{"overflow"}}, SIGSEGV, 0, {kSegv, "Recurse"}, false},
      {{{"overflow-thread"}}, SIGSEGV, 0},
      {{{"log-thread"}}, SIGSEGV, 0, {"CrashingEdit::ReplaceSel", "RunOutputThread"}},
      {{{"abort"}}, SIGABRT, 0},
      {{{"terminate"}}, SIGABRT, 0},
      {{{"fpe"}}, SIGFPE, 0},
      {{{"ill"}}, SIGILL, 0},
      {{{"trap"}}, SIGTRAP, 0},
      {{{"sys"}}, SIGSYS, 0},
      {{{"bus"}}, SIGBUS, 0},
      {{{"request"}}, SIGTRAP, VYN_END_OF_PROCESS_REQUESTED},
      {{{"pure-virtual"}},
       SIGTRAP,
       VYN_END_OF_PROCESS_PURE_VIRTUAL,
       {"stop reason = signal SIGTRAP", "__cxa_pure_virtual", "CallFromConstructor"}},
      // The watchdog ends a process whose monitored thread hangs: its own
      // thread raises it (the kernel keeps 15 characters of a name).
      {{{"hang"}, "", {"VYN_LIBEXEC_DIR=" VYN_HELPER_DIR}, false, VYN_CRASH_PROBE_STATIC},
       SIGTRAP,
       VYN_END_OF_PROCESS_HUNG_THREAD,
       {"CVYNThreadMonitor::CheckObjects", "CVYNMemoryDump::ProvokeHang"}},
      // Every thread at once; a second thread while the dump is written; a
      // fault of the dumping thread itself; a damaged C library heap. The
      // first dump ends the process: a second crash writes none.
      {{{"all-threads"}}, 0, 0},
      {{{"second-crash"}}, 0, 0},
      {{{"fault-during-dump"}}, 0, 0},
      {{{"corrupt-heap"}}, 0, 0, {kSegv, "CrashInProbeFunction"}},
  };
  std::vector<Probe> probes;
  for (const Case& c : cases) probes.push_back(c.probe);
  const std::string from = LocalTimeNow();
  const std::vector<ProbeRun> runs = RunProbes(probes);
  const std::string to = LocalTimeNow();
  std::vector<LldbQuestion> questions;
  std::vector<size_t> asked;
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    const ProbeRun& run = runs[i];
    SCOPED_TRACE(c.probe.arguments[0]);
    EXPECT_EQ(run.result.exit_code, 1) << run.result.output;
    ASSERT_EQ(run.dumps.size(), 1u) << run.result.output;
    ExpectFirstDumpName(run, from, to);
    const DumpSummary dump = Read(run.dumps[0]);
    ASSERT_TRUE(dump.has_exception);
    EXPECT_EQ(ThreadNames(dump).count(dump.exception_thread), 1u);
    if (!c.in_lldb.empty()) {
      questions.push_back({c.probe.program, run.dumps[0]});
      asked.push_back(i);
    }
    if (c.signal == 0) continue;
    EXPECT_EQ(dump.exception.code, static_cast<uint32_t>(c.signal));
    EXPECT_EQ(dump.flags, CVYNMemoryDump::kDefaultDumpType);
    if (c.reason != 0) {
      ASSERT_EQ(dump.exception.parameter_count, 2u);
      EXPECT_EQ(dump.exception.parameters[0], kEnd);
      EXPECT_EQ(dump.exception.parameters[1], c.reason);
    }
    if (c.reason == VYN_END_OF_PROCESS_HUNG_THREAD) {
      EXPECT_EQ(ThreadNames(dump)[dump.exception_thread], "VYN Thread Moni");
    }
  }

  const std::vector<std::string> answers =
      AskLldb(questions, {"thread list", "thread backtrace all", "image list"});
  ASSERT_EQ(answers.size(), asked.size());
  for (size_t q = 0; q < asked.size(); ++q) {
    const Case& c = cases[asked[q]];
    SCOPED_TRACE(c.probe.arguments[0]);
    const std::string& lldb = answers[q];
    const DumpSummary dump = Read(runs[asked[q]].dumps[0]);
    ASSERT_TRUE(Contains(lldb, "was loaded")) << lldb;
    for (const std::string& text : c.in_lldb) EXPECT_TRUE(Contains(lldb, text)) << text;
    // LLDB sees the threads ("thread #2: tid = 4711, ...") and modules our
    // reader sees, and every thread's backtrace reaches its start.
    std::set<uint32_t> lldb_ids;
    for (size_t at = lldb.find(": tid = "); at != std::string::npos;
         at = lldb.find(": tid = ", at + 1)) {
      lldb_ids.insert(static_cast<uint32_t>(std::strtoul(lldb.c_str() + at + 8, nullptr, 10)));
    }
    std::set<uint32_t> ids;
    for (const auto& [id, name] : ThreadNames(dump)) ids.insert(id);
    EXPECT_EQ(lldb_ids, ids) << lldb;
    for (const minidump::DumpModule& module : dump.modules) {
      EXPECT_TRUE(Contains(lldb, module.name)) << module.name;
    }
    if (c.complete) {
      EXPECT_GE(CountOf(lldb, "start_thread") + CountOf(lldb, "__libc_start_call_main"),
                dump.threads.size())
          << lldb;
    }
  }
}

TEST(CrashTest, EveryThreadIsInTheDumpsOfOneOrTwoProgramsAndOurReaderTakesNoDamage) {
  const std::vector<ProbeRun> runs =
      RunProbes({{{"threads", "200"}, "DumpType=0\n"},
                 {{"-c", "\"$0\" threads 4 & \"$0\" threads 4 & wait", VYN_CRASH_PROBE},
                  "",
                  {},
                  false,
                  "/bin/sh"},
                 {{"threads", "3"}, "DumpType=0\n"}});  // small: read often below
  ASSERT_EQ(runs[0].dumps.size(), 1u);
  const DumpSummary dump = Read(runs[0].dumps[0]);
  EXPECT_EQ(dump.threads.size(), 201 + kRuntimeThreads);
  for (const minidump::DumpThread& thread : dump.threads) {
    EXPECT_TRUE(thread.has_context);
    EXPECT_GT(thread.stack_size, 0u) << thread.id;
  }
  // Two programs crashing in one folder leave whole dumps.
  ASSERT_GE(runs[1].dumps.size(), 1u);
  for (const std::string& path : runs[1].dumps) {
    EXPECT_EQ(Read(path).threads.size(), 5 + kRuntimeThreads) << path;
  }

  // Our reader refuses damaged dumps without reading outside them.
  ASSERT_EQ(runs[2].dumps.size(), 1u);
  const std::string original = ReadFile(runs[2].dumps[0]);
  DumpSummary summary = Read(runs[2].dumps[0]);
  EXPECT_EQ(summary.threads.size(), 4 + kRuntimeThreads);
  std::string error;
  const std::string damaged = runs[2].folder->File("damaged.dmp");
  // Cut short anywhere in the region that holds the streams.
  for (size_t length = 0; length < std::min<size_t>(original.size(), 40000); length += 97) {
    WriteFile(damaged, original.substr(0, length));
    EXPECT_FALSE(minidump::ReadMinidump(damaged, &summary, &error)) << length;
    EXPECT_FALSE(error.empty());
  }
  // Random bytes changed: read or refused, never outside the file.
  std::mt19937 random(14);
  for (int round = 0; round < 120; ++round) {
    std::string changed = original;
    for (int i = 0; i < 8; ++i) {
      changed[random() % std::min<size_t>(changed.size(), 8192)] = static_cast<char>(random());
    }
    WriteFile(damaged, changed);
    minidump::ReadMinidump(damaged, &summary, &error);
    minidump::FormatSummary(summary);
  }
  EXPECT_FALSE(minidump::ReadMinidump(runs[2].folder->path(), &summary, &error));
  EXPECT_FALSE(minidump::ReadMinidump(runs[2].folder->File("missing.dmp"), &summary, &error));
}

TEST(CrashTest, IniSettingsChooseTheDumpAndTheMessage) {
  struct Case {
    std::string ini;
    uint64_t flags;
    bool full_memory;
  };
  const std::vector<Case> cases = {
      {"DumpType=0x15", 0, false},  // decimal only: 0
      {"DumpType=2", MiniDumpWithFullMemory, true},
      {"DumpType= +4097 trailing", 4097, false},
      // "yes" reads as 0: no message box; -5 counts as 0: no heap check.
      {"DumpType=garbage\nHeapCheckInterval=-5\nMessageBoxAfterDump=yes", 0, false},
      {"DumpType=", CVYNMemoryDump::kDefaultDumpType, false},  // empty: unchanged
  };
  std::vector<Probe> probes;
  for (const Case& c : cases) probes.push_back({{"segv"}, c.ini + "\n"});
  const std::string kBox = "MessageBoxAfterDump=1\n";
  const std::string kName = "say \"cheese\"";
  probes.push_back({{"segv"}, kBox, {"VYN_PROBE_DUMP_NAME=" + kName}});
  // No dump writer to be found; a full disk, as a file-size limit.
  probes.push_back({{"segv"}, kBox, {}, false, VYN_CRASH_PROBE_STATIC});
  probes.push_back(
      {{"-c", "ulimit -f 8 && exec \"$0\" segv", VYN_CRASH_PROBE}, kBox, {}, false, "/bin/sh"});
  probes.push_back({{"segv"}, kBox, {}, true});  // "Dumps" is a file: no dump file
  const std::vector<ProbeRun> runs = RunProbes(probes);

  uint64_t stack_only_bytes = 0;
  for (size_t i = 0; i < cases.size(); ++i) {
    const Case& c = cases[i];
    SCOPED_TRACE(c.ini);
    EXPECT_EQ(runs[i].result.exit_code, 1) << runs[i].result.output;
    EXPECT_FALSE(Contains(runs[i].result.output, "critical problem"));
    ASSERT_EQ(runs[i].dumps.size(), 1u);
    const DumpSummary dump = Read(runs[i].dumps[0]);
    EXPECT_EQ(dump.flags, c.flags);
    EXPECT_EQ(dump.HasStream(minidump::kMemory64ListStream), c.full_memory);
    EXPECT_EQ(dump.HasStream(minidump::kHandleDataStream), (c.flags & MiniDumpWithHandleData) != 0);
    for (const auto& [id, name] : ThreadNames(dump)) EXPECT_NE(name, "VYN Heap Check");
    if (c.flags == 0) stack_only_bytes = dump.memory_bytes;
    if (c.full_memory) {
      EXPECT_GT(dump.memory64_bytes, 10 * stack_only_bytes);
    }
  }

  // Shown by the host process (without a display: on standard error), with
  // CR LF shown as line feeds and the quotes of the caption intact.
  const ProbeRun& shown = runs[cases.size()];
  ASSERT_EQ(shown.dumps.size(), 1u);
  EXPECT_TRUE(Contains(shown.result.output,
                       kName +
                           "\nThe application has detected a critical problem and needs to "
                           "close.\n\nThe dumpfile has been saved to the following file:\n\n" +
                           shown.dumps[0] + "\n"))
      << shown.result.output;
  const ProbeRun& no_writer = runs[cases.size() + 1];
  EXPECT_EQ(no_writer.result.exit_code, 1);
  EXPECT_TRUE(no_writer.dumps.empty());
  EXPECT_TRUE(Contains(no_writer.result.output,
                       "needs to close.\n\nThe dumpfile could not be created because "
                       "DBGHELP.DLL could not be found."))
      << no_writer.result.output;
  // The failure text replaces the dump that did not fit.
  const ProbeRun& full = runs[cases.size() + 2];
  EXPECT_EQ(full.result.exit_code, 1) << full.result.output;
  ASSERT_EQ(full.dumps.size(), 1u);
  EXPECT_EQ(ReadFile(full.dumps[0])
                .rfind("The dumpfile could not be saved to the following file "
                       "(GetLastError() = 0x0000001b):\r\n\r\n" +
                           full.dumps[0],
                       0),
            0u);
  EXPECT_TRUE(Contains(full.result.output, "could not be saved"));
  const ProbeRun& blocked = runs[cases.size() + 3];
  EXPECT_EQ(blocked.result.exit_code, 1);
  EXPECT_TRUE(Contains(blocked.result.output,
                       "The dumpfile could not be created (GetLastError() = "
                       "0x00000014):\n\n" +
                           blocked.folder->path() + "/Dumps/crash probe "))
      << blocked.result.output;

  const std::string host = std::string(VYN_SHARED_LIBRARY) + ",";
  const ChildResult bare = RunChild({VYN_RUNDLL, host + "ShowMessageBox"});
  EXPECT_EQ(bare.exit_code, 0);
  EXPECT_EQ(bare.output, "Unspecified caption.\nUnspecified text.\n");
  EXPECT_EQ(RunChild({VYN_RUNDLL, host + "NoSuchEntry"}).exit_code, 1);
}

TEST(CrashTest, HeapCheckLogsCorruptionOrEndsTheProcessAsConfigured) {
  // The interval is in seconds: the probe damages the heap 0.1 s after the
  // first check, and the next one comes a second after that check.
  const std::string kEverySecond = "HeapCheckInterval=1\n";
  const std::vector<ProbeRun> runs =
      RunProbes({{{"heap-check"}, kEverySecond},
                 {{"heap-check"}, kEverySecond + "DumpAfterHeapCorruption=1\n"}});
  const ProbeRun& logged = runs[0];
  EXPECT_EQ(logged.result.exit_code, 0) << logged.result.output;
  EXPECT_TRUE(logged.dumps.empty());
  const size_t at = logged.result.output.find("found after ");
  ASSERT_NE(at, std::string::npos) << logged.result.output;
  EXPECT_GE(std::atoi(logged.result.output.c_str() + at + 12), 600) << logged.result.output;
  const std::string text = LoggedText(logged.folder->path());
  for (const char* expected :
       {"The cyclic heap check has been started.",
        "The application is going to provoke a heap corruption.",
        "The application has detected a heap corruption.", "heap check has been stopped."}) {
    EXPECT_TRUE(Contains(text, expected)) << expected << "\n" << text;
  }

  const ProbeRun& dumped = runs[1];
  EXPECT_EQ(dumped.result.exit_code, 1) << dumped.result.output;
  ASSERT_EQ(dumped.dumps.size(), 1u);
  const DumpSummary dump = Read(dumped.dumps[0]);
  ASSERT_TRUE(dump.has_exception);
  EXPECT_EQ(dump.exception.parameters[1], VYN_END_OF_PROCESS_HEAP_CORRUPTION);
  EXPECT_EQ(ThreadNames(dump)[dump.exception_thread], "VYN Heap Check");
}

}  // namespace
}  // namespace vyn::test
