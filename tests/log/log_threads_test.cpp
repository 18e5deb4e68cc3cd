// The log among other threads: eight writers at once lose nothing and keep
// their order, and the thread monitor's hang report reaches the file although
// every monitored thread, the log's own included, freezes right after it (in
// a child process, as the hang leaves a frozen process behind).
#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>
#include <vector>

#include "tests/log/log_test_support.h"
#include "vyn/core/status.h"
#include "vyn/threads/internal/thread_monitor_testing.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread_monitor.h"

namespace vyn::test {
namespace {

#if defined(__SANITIZE_THREAD__)
constexpr int kPerThread = 2500;  // ThreadSanitizer is some 20 times slower
#else
constexpr int kPerThread = 12500;  // 100,000 entries: two files
#endif

TEST_F(LogTest, EightThreadsLoseNothingAndKeepTheirOrder) {
  ASSERT_EQ(log_.Initialize(nullptr, "Busy", "V 1"), VYN_STATUS_SUCCESS);
  const std::array<int64_t, 10> before = Statistics();
  const int64_t lost = log_.GetLostEntryCount();
  std::atomic<int> refused{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 8; ++t) {
    threads.emplace_back([t, &refused] {
      const auto type = t % 2 ? VYN_EVENT_DEBUG : VYN_EVENT_COMMAND;
      for (int i = 0; i < kPerThread; ++i) {
        const std::string text = std::to_string(t) + " " + std::to_string(i);
        refused += GetVYNSystemLogEx().AddOutput(text, type, "", "Thread") != VYN_STATUS_SUCCESS;
      }
    });
  }
  for (std::thread& thread : threads) thread.join();
  WaitUntilWritten();
  log_.Terminate();

  std::array<int, 8> next{};
  int64_t last = 0;
  int64_t titles = 0;
  const std::vector<std::string> files = LogFiles();
  for (const std::string& file : files) {
    for (const Record& entry : ReadEntries(file)) {
      ASSERT_GT(std::stoll(entry[kNumber]), last) << file;
      last = std::stoll(entry[kNumber]);
      titles += entry[kText] == "Busy V 1";
      if (entry[kCaller] != "Thread") continue;
      const int t = entry[kText][0] - '0';
      ASSERT_EQ(entry[kText].substr(2), std::to_string(next.at(t)++)) << "thread " << t;
    }
  }
  for (const int count : next) EXPECT_EQ(count, kPerThread);
  EXPECT_EQ(refused, 0);
  EXPECT_EQ(static_cast<int64_t>(files.size()), titles + 1);
  const std::array<int64_t, 10> after = Statistics();
  EXPECT_EQ(after[0] - before[0], int64_t{8} * kPerThread + titles);
  EXPECT_EQ(after[7] - before[7], titles);          // information
  EXPECT_EQ(after[8] - before[8], 4 * kPerThread);  // command
  EXPECT_EQ(after[9] - before[9], 4 * kPerThread);  // debug
  EXPECT_EQ(log_.GetLostEntryCount(), lost);
}

// Stamps one heartbeat before its start is signalled, then never again.
int32_t FallSilent(void* raw) {
  auto* thread = static_cast<CVYNMonitoredThread*>(raw);
  thread->UpdateStatus();
  thread->SignalStart();
  while (thread->IsRunning()) thread->Sleep(100);
  return 0;
}

// Exit code 0 when the hang report and the announcement of the dump are in
// the file; the reason of a failure goes to standard error. The silent thread
// stamps before the log starts, and the watchdog's clock is set just past the
// threshold from that heartbeat: only the silent thread is hung, at once.
int ReportHangThroughTheLog() {
  TempDir directory;
  ScopedCurrentDirectory current(directory.path());
  CVYNMonitoredThread silent;
  silent.SetThreadName("VYN Silent");
  silent.CreateThread(&FallSilent, &silent, nullptr, 0, 0, true);
  const std::string id = std::to_string(static_cast<int>(silent.GetThreadID()));
  GetVYNSystemLogEx().Initialize(nullptr, "Hang", "V 1");
  vyn::seams::SetThreadMonitorTiming(3000000000, 5);  // 300 s, checked every 5 ms
  vyn::seams::SetThreadMonitorClock(silent.GetLastTimestamp() + 3000000001);
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  monitor.Initialize();
  for (int i = 0; i < 2000 && !monitor.IsObjectTimeout(); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  // The stop releases the frozen output thread, which writes what is queued.
  GetVYNSystemLogEx().Terminate();
  silent.DestroyThread(true);
  monitor.Terminate();
  std::string fatal;  // the last heartbeat's "YYYY-MM-DD; hh:mm:ss" cut off
  for (const Record& entry : ReadEntries(LogFiles().at(0))) {
    if (entry[kEvent] == "fatal" && entry[kCaller] == "CVYNThreadMonitor") {
      fatal +=
          entry[kText].substr(0, entry[kText].size() - size_t{20} * (entry[kText][0] == 'C')) + "|";
    }
  }
  const std::string expected =
      "CheckObjects(); a thread has stopped to respond; thread name; VYN Silent; thread ID; " + id +
      "; last response; |A thread has stopped to respond. The thread monitor is going to create a "
      "memory dump of the application.|";
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
