// The thread monitor reports a hung thread through the log: the report must
// reach the CSV file although every monitored thread, the log's own output
// thread included, freezes right after it. The hang leaves a frozen process,
// so the case runs in a child (death test, re-executed "threadsafe").
#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

#include "tests/log/log_test_support.h"
#include "vyn/core/status.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread_monitor.h"
#include "vyn/threads/thread_monitor_testing.h"

namespace vyn::test {
namespace {

constexpr int64_t kOneSecond100ns = 10000000;

// Stamps one heartbeat, then never again.
int32_t FallSilent(void* raw) {
  auto* thread = static_cast<CVYNMonitoredThread*>(raw);
  thread->SignalStart();
  thread->UpdateStatus();
  while (thread->IsRunning()) thread->Sleep(100);
  return 0;
}

// Exit code 0 when the hang report and the announcement of the dump are in
// the file; the reason of a failure goes to standard error.
int ReportHangThroughTheLog() {
  TempDir directory;
  ScopedCurrentDirectory current(directory.path());
  vyn::testing::SetThreadMonitorTiming(2 * kOneSecond100ns, 50);
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  GetVYNSystemLogEx().Initialize(nullptr, "Hang", "V 1");
  CVYNMonitoredThread silent;
  silent.SetThreadName("VYN Silent");
  silent.CreateThread(&FallSilent, &silent, nullptr, 0, 0, true);
  const std::string report =
      "CheckObjects(); a thread has stopped to respond; thread name; "
      "VYN Silent; thread ID; " +
      std::to_string(static_cast<int>(silent.GetThreadID())) + "; last response; ";
  monitor.Initialize();
  for (int i = 0; i < 400 && !monitor.IsObjectTimeout(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  // The stop releases the frozen output thread, which writes what is queued.
  GetVYNSystemLogEx().Terminate();
  silent.DestroyThread(true);
  monitor.Terminate();
  std::string fatal;
  for (const std::string& file : LogFiles()) {
    for (const Record& entry : ReadEntries(file)) {
      if (entry[kEvent] == "fatal" && entry[kCaller] == "CVYNThreadMonitor") {
        // The time of the last heartbeat: "YYYY-MM-DD; hh:mm:ss".
        const bool dated =
            entry[kText].rfind(report, 0) == 0 && entry[kText].size() == report.size() + 20;
        fatal += dated ? report + "<date>; <time>\n" : entry[kText] + "\n";
      }
    }
  }
  const std::string expected =
      report + "<date>; <time>\n" +
      "A thread has stopped to respond. The thread monitor is going to create a memory dump of "
      "the application.\n";
  if (fatal == expected) return 0;
  std::fprintf(stderr, "fatal entries in the file:\n%s", fatal.c_str());
  return 1;
}

TEST(LogWatchdogDeathTest, HangReportReachesTheFile) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(ReportHangThroughTheLog()), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vyn::test
