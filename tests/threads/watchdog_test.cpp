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

// Ends a child with a failure that says what went wrong.
[[noreturn]] void Fail(const char* why) {
  std::fprintf(stderr, "%s\n", why);
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
// was found, every monitored thread froze, and a stop still releases them;
// otherwise it says which of these did not happen.
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
  if (monitor.IsObjectTimeout()) Fail("a hang was reported before the threshold");
  if (!WaitFor([&] { return monitor.IsObjectTimeout(); }, std::chrono::seconds(20))) {
    Fail("the silent thread was not reported within 20 s");
  }
  // Give the healthy thread time to reach its next heartbeat, then watch it.
  std::this_thread::sleep_for(milliseconds(200));
  const int frozen_at = healthy.rounds;
  std::this_thread::sleep_for(milliseconds(500));
  if (healthy.rounds != frozen_at) Fail("the healthy thread went on after the verdict");
  // A heartbeat from any thread now stays in the freeze.
  std::atomic<bool> returned{false};
  std::thread([&] {
    healthy.thread.UpdateStatus();
    returned = true;
  }).detach();
  std::this_thread::sleep_for(milliseconds(300));
  if (returned) Fail("a heartbeat after the verdict returned instead of freezing");
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
  Fail("the watchdog did not end the process within 30 s");
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
