// The watchdog's verdicts end in a frozen or ended process, so each case runs
// in a child process of its own (death tests, re-executed "threadsafe").
#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <thread>

#include "vyn/core/status.h"
#include "vyn/platform/crash.h"
#include "vyn/threads/internal/thread_monitor_testing.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread_monitor.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr int64_t kOneSecond100ns = 10000000;
constexpr int64_t kThreshold100ns = 300 * kOneSecond100ns;

struct Beating {
  CVYNMonitoredThread thread;
  std::atomic<int> rounds{0};
  int period_ms = 20;
  bool stop_stamping_after_first = false;
};

int32_t Beat(void* raw) {
  auto* beating = static_cast<Beating*>(raw);
  beating->thread.SignalStart();
  while (beating->thread.IsRunning()) {
    if (!beating->stop_stamping_after_first || beating->rounds == 0) {
      beating->thread.UpdateStatus();
    }
    ++beating->rounds;
    beating->thread.Sleep(static_cast<uint32_t>(beating->period_ms));
  }
  return 0;
}

// Ends the child with the reason on standard error, which the death test
// shows when it fails.
[[noreturn]] void Fail(const char* why) {
  std::fprintf(stderr, "watchdog child: %s\n", why);
  std::_Exit(1);
}

bool WaitFor(const std::function<bool()>& condition, std::chrono::seconds limit) {
  const auto deadline = Clock::now() + limit;
  while (!condition()) {
    if (Clock::now() > deadline) return false;
    std::this_thread::sleep_for(milliseconds(10));
  }
  return true;
}

// Child: a healthy thread and one that stops stamping; exits 0 when the hang
// was found, every monitored thread froze, and a stop still releases them.
void HangFreezesEveryMonitoredThread() {
  vyn::testing::SetThreadMonitorTiming(kOneSecond100ns, 50);
  Beating healthy;
  Beating silent;
  silent.stop_stamping_after_first = true;
  healthy.thread.CreateThread(&Beat, &healthy, nullptr, 0, 0, true);
  silent.thread.CreateThread(&Beat, &silent, nullptr, 0, 0, true);
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  if (monitor.Initialize() != VYN_STATUS_SUCCESS) Fail("the watchdog did not start");
  if (monitor.Initialize() != VYN_STATUS_BUSY) Fail("a second start was not refused as busy");
  // The healthy thread alone for a while: no verdict.
  std::this_thread::sleep_for(milliseconds(300));
  if (monitor.IsObjectTimeout()) Fail("a hang was reported while every thread was healthy");
  if (!WaitFor([&] { return monitor.IsObjectTimeout(); }, std::chrono::seconds(20))) {
    Fail("the silent thread was never reported as hung");
  }
  // Give the healthy thread time to reach its next heartbeat, then watch it.
  std::this_thread::sleep_for(milliseconds(200));
  const int frozen_at = healthy.rounds;
  std::this_thread::sleep_for(milliseconds(500));
  if (healthy.rounds != frozen_at) Fail("the healthy thread went on after the hang");
  // A heartbeat from any other thread now stays in the freeze: through the
  // object of a running thread, and through an object that has no thread of
  // its own (an application thread that only stamps heartbeats).
  static CVYNMonitoredThread heartbeat_only;
  std::atomic<int> returned{0};
  std::thread([&] {
    healthy.thread.UpdateStatus();
    ++returned;
  }).detach();
  std::thread([&] {
    heartbeat_only.UpdateStatus();
    ++returned;
  }).detach();
  std::this_thread::sleep_for(milliseconds(300));
  if (returned != 0) Fail("a heartbeat from another thread returned after the hang");
  // An explicit stop releases the frozen threads.
  healthy.thread.DestroyThread(true);
  silent.thread.DestroyThread(true);
  std::_Exit(0);
}

// Child: with crash handlers marked installed, the hang ends the process
// through the end-of-process signal.
void HangEndsTheProcessWhenHandlersAreInstalled() {
  vyn::testing::SetThreadMonitorTiming(kOneSecond100ns, 50);
  vyn::platform::MarkCrashHandlersInstalled();
  Beating silent;
  silent.stop_stamping_after_first = true;
  silent.thread.CreateThread(&Beat, &silent, nullptr, 0, 0, true);
  GetVYNThreadMonitor().Initialize();
  std::this_thread::sleep_for(std::chrono::seconds(30));
  Fail("the watchdog did not end the process");
}

// Child: a heartbeat exactly 300 s old is in order; 100 ns more is a hang.
// The watchdog's clock is set, not waited for.
void ThresholdIsThreeHundredSecondsExactly() {
  Beating once;
  once.stop_stamping_after_first = true;
  once.thread.CreateThread(&Beat, &once, nullptr, 0, 0, true);
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  const int64_t last = once.thread.GetLastTimestamp();
  if (last == 0) Fail("the thread stamped no heartbeat");
  vyn::testing::SetThreadMonitorClock(last + kThreshold100ns);
  monitor.CheckObjects();
  if (monitor.IsObjectTimeout()) Fail("a heartbeat of exactly 300 s was taken as a hang");
  vyn::testing::SetThreadMonitorClock(last - kOneSecond100ns);  // the clock was set back
  monitor.CheckObjects();
  if (monitor.IsObjectTimeout()) Fail("a heartbeat from the future was taken as a hang");
  vyn::testing::SetThreadMonitorClock(last + kThreshold100ns + 1);
  monitor.CheckObjects();
  if (!monitor.IsObjectTimeout()) Fail("a heartbeat of 300 s and 100 ns was not a hang");
  std::_Exit(0);
}

TEST(WatchdogDeathTest, ThresholdIsThreeHundredSecondsExactly) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(ThresholdIsThreeHundredSecondsExactly(), ::testing::ExitedWithCode(0), "");
}

TEST(WatchdogDeathTest, HangFreezesEveryMonitoredThread) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(HangFreezesEveryMonitoredThread(), ::testing::ExitedWithCode(0), "");
}

TEST(WatchdogDeathTest, HangEndsTheProcessWhenHandlersAreInstalled) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(HangEndsTheProcessWhenHandlersAreInstalled(),
              ::testing::KilledBySignal(vyn::platform::EndOfProcessSignal()), "");
}

TEST(WatchdogTest, HealthyThreadsAreNeverReported) {
  vyn::testing::SetThreadMonitorTiming(kOneSecond100ns, 20);
  Beating healthy;
  healthy.thread.CreateThread(&Beat, &healthy, nullptr, 0, 0, true);
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  ASSERT_EQ(monitor.Initialize(), VYN_STATUS_SUCCESS);
  std::this_thread::sleep_for(milliseconds(1500));
  EXPECT_FALSE(monitor.IsObjectTimeout());
  EXPECT_GT(healthy.rounds, 10);
  EXPECT_EQ(monitor.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(monitor.Initialize(), VYN_STATUS_SUCCESS);  // restartable
  monitor.Terminate();
  vyn::testing::ResetThreadMonitorTiming();
}

}  // namespace
