// The watchdog's verdicts end in a frozen or ended process, so each hang runs
// in a child process of its own (death tests, re-executed "threadsafe"). The
// watchdog's clock is set, not waited for: a hang is found at its first check.
#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "vyn/core/status.h"
#include "vyn/platform/crash.h"
#include "vyn/platform/system_time.h"
#include "vyn/threads/internal/thread_monitor_testing.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread_monitor.h"

namespace {

using std::chrono::milliseconds;

constexpr int64_t kOneSecond100ns = 10000000;
constexpr int64_t kThreshold100ns = 300 * kOneSecond100ns;

// A thread that stamps a heartbeat every few milliseconds or, when silent,
// one heartbeat before its start is signalled and none after it.
struct Beating {
  explicit Beating(bool silent_after_start = false) : silent(silent_after_start) {
    thread.CreateThread(&Beat, this, nullptr, 0, 0, true);
  }
  static int32_t Beat(void* raw) {
    auto* self = static_cast<Beating*>(raw);
    self->thread.UpdateStatus();
    self->thread.SignalStart();
    while (self->thread.IsRunning()) {
      if (!self->silent) self->thread.UpdateStatus();
      ++self->rounds;
      self->thread.Sleep(2);
    }
    return 0;
  }
  CVYNMonitoredThread thread;
  std::atomic<int> rounds{0};
  const bool silent;
};

// Ends the child with the reason on standard error, which the death test
// shows when it fails.
[[noreturn]] void Fail(const char* why) {
  std::fprintf(stderr, "watchdog child: %s\n", why);
  std::_Exit(1);
}

void SleepMs(int ms) { std::this_thread::sleep_for(milliseconds(ms)); }

// Child: a heartbeat exactly 300 s old is in order, one from the future too;
// 100 ns more is a hang.
void ThresholdIsThreeHundredSecondsExactly() {
  Beating once(true);
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  const int64_t last = once.thread.GetLastTimestamp();
  if (last == 0) Fail("the thread stamped no heartbeat");
  vyn::seams::SetThreadMonitorClock(last + kThreshold100ns);
  monitor.CheckObjects();
  if (monitor.IsObjectTimeout()) Fail("a heartbeat of exactly 300 s was taken as a hang");
  vyn::seams::SetThreadMonitorClock(last - kOneSecond100ns);  // the clock was set back
  monitor.CheckObjects();
  if (monitor.IsObjectTimeout()) Fail("a heartbeat from the future was taken as a hang");
  vyn::seams::SetThreadMonitorClock(last + kThreshold100ns + 1);
  monitor.CheckObjects();
  if (!monitor.IsObjectTimeout()) Fail("a heartbeat of 300 s and 100 ns was not a hang");
  std::_Exit(0);
}

// Child: the running watchdog finds the silent thread; every monitored thread
// then freezes at its next heartbeat, whoever stamps it, until its owner
// stops it.
void HangFreezesEveryMonitoredThread() {
  vyn::seams::SetThreadMonitorTiming(kThreshold100ns, 5);
  Beating silent(true);
  Beating healthy;  // every heartbeat of it is younger than the silent one's
  vyn::seams::SetThreadMonitorClock(silent.thread.GetLastTimestamp() + kThreshold100ns + 1);
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  if (monitor.Initialize() != VYN_STATUS_SUCCESS) Fail("the watchdog did not start");
  if (monitor.Initialize() != VYN_STATUS_BUSY) Fail("a second start was not refused as busy");
  for (int i = 0; i < 1000 && !monitor.IsObjectTimeout(); ++i) SleepMs(5);
  if (!monitor.IsObjectTimeout()) Fail("the silent thread was never reported as hung");
  // Frozen: the rounds stop within a heartbeat and stay stopped.
  int frozen_at = -1;
  for (int i = 0; i < 50 && healthy.rounds != frozen_at; ++i) {
    frozen_at = healthy.rounds;
    SleepMs(100);
  }
  SleepMs(100);
  if (healthy.rounds != frozen_at) Fail("the healthy thread went on after the hang");
  // A heartbeat from any other thread stays in the freeze too: through the
  // object of a running thread, and through an object without a thread of its
  // own (an application thread that only stamps heartbeats).
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
  SleepMs(100);
  if (returned != 0) Fail("a heartbeat from another thread returned after the hang");
  // An explicit stop releases the frozen threads.
  healthy.thread.DestroyThread(true);
  silent.thread.DestroyThread(true);
  std::_Exit(0);
}

// Child: with crash handlers marked installed, the hang ends the process
// through the end-of-process signal.
void HangEndsTheProcessWhenHandlersAreInstalled() {
  vyn::platform::MarkCrashHandlersInstalled();
  Beating silent(true);
  vyn::seams::SetThreadMonitorClock(silent.thread.GetLastTimestamp() + kThreshold100ns + 1);
  GetVYNThreadMonitor().Initialize();
  SleepMs(30000);
  Fail("the watchdog did not end the process");
}

TEST(WatchdogDeathTest, FindsHangsFreezesAndEnds) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(ThresholdIsThreeHundredSecondsExactly(), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HangFreezesEveryMonitoredThread(), ::testing::ExitedWithCode(0), "");
  EXPECT_EXIT(HangEndsTheProcessWhenHandlersAreInstalled(),
              ::testing::KilledBySignal(vyn::platform::EndOfProcessSignal()), "");
}

// Healthy threads keep their heartbeats fresh on the watchdog's own scale:
// checked against the real clock, and against a clock set one threshold past
// a moment the thread has beaten since.
TEST(WatchdogTest, HealthyThreadsAreNeverReported) {
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  Beating healthy;
  const int64_t since = vyn::platform::GetSystemTimeAsFileTime();
  for (const int rounds = healthy.rounds + 2; healthy.rounds < rounds;) SleepMs(1);
  monitor.CheckObjects();
  EXPECT_FALSE(monitor.IsObjectTimeout());
  vyn::seams::SetThreadMonitorClock(since + kThreshold100ns);
  monitor.CheckObjects();
  vyn::seams::SetThreadMonitorClock(0);
  EXPECT_FALSE(monitor.IsObjectTimeout());
  EXPECT_EQ(monitor.Initialize(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(monitor.Terminate(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(monitor.Initialize(), VYN_STATUS_SUCCESS);  // restartable
  monitor.Terminate();
}

}  // namespace
