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
#include <vector>

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

int Fail(const char* reason) {
  std::fprintf(stderr, "%s\n", reason);
  return 1;
}

int ReportHangThroughTheLog() {
  TempDir directory;
  ScopedCurrentDirectory current(directory.path());
  vyn::testing::SetThreadMonitorTiming(2 * kOneSecond100ns, 50);
  CVYNSystemLogEx& log = GetVYNSystemLogEx();
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  if (log.Initialize(nullptr, "Hang", "V 1") != VYN_STATUS_SUCCESS) return Fail("no log");
  CVYNMonitoredThread silent;
  silent.SetThreadName("VYN Silent");
  silent.CreateThread(&FallSilent, &silent, nullptr, 0, 0, true);
  const uint32_t id = silent.GetThreadID();
  if (monitor.Initialize() != VYN_STATUS_SUCCESS) return Fail("no monitor");
  for (int i = 0; i < 400 && !monitor.IsObjectTimeout(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  if (!monitor.IsObjectTimeout()) return Fail("no hang found");
  // The stop releases the frozen output thread, which writes what is queued.
  log.Terminate();
  silent.DestroyThread(true);
  monitor.Terminate();

  const std::string report =
      "CheckObjects(); a thread has stopped to respond; thread name; "
      "VYN Silent; thread ID; " +
      std::to_string(static_cast<int>(id)) + "; last response; ";
  int reports = 0;
  int announcements = 0;
  for (const std::string& file : LogFiles()) {
    for (const Record& entry : ReadEntries(file)) {
      if (entry[kEvent] != "fatal" || entry[kCaller] != "CVYNThreadMonitor") continue;
      reports += entry[kText].rfind(report, 0) == 0 &&
                 entry[kText].size() == report.size() + std::string("2024-01-31; 23:59:59").size();
      announcements += entry[kText] ==
                       "A thread has stopped to respond. The thread monitor is going to create a "
                       "memory dump of the application.";
    }
  }
  if (reports != 1) return Fail("the hang report is not in the file");
  if (announcements != 1) return Fail("the announcement of the dump is not in the file");
  return 0;
}

TEST(LogWatchdogDeathTest, HangReportReachesTheFile) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(std::_Exit(ReportHangThroughTheLog()), ::testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace vyn::test
