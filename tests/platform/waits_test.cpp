// Events, wake-ups and sleeps: whom a signal releases, and that signals
// arriving meanwhile neither shorten nor stretch a wait.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "tests/platform/wait_helpers.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/event.h"
#include "vyn/platform/wake_up_event.h"

namespace {

using vyn::platform::Event;
using vyn::platform::WaitForDescriptor;
using vyn::platform::WakeUpEvent;
using vyn::test::Late;
using vyn::test::milliseconds;
using vyn::test::Timed;

bool Nothing(const vyn::platform::DescriptorReadiness& r) {
  return !r.readable && !r.writable && !r.hung_up && !r.woken;
}

TEST(EventTest, AManualSetReleasesEveryWaiterAnAutomaticOneOne) {
  for (const bool manual : {true, false}) {
    Event event(manual);
    std::atomic<int> released{0};
    std::vector<std::thread> waiters;
    for (int i = 0; i < 3; ++i) waiters.emplace_back([&] { released += event.Wait(10000); });
    event.Set();
    for (int i = 0; i < 400 && released < (manual ? 3 : 1); ++i) {
      std::this_thread::sleep_for(milliseconds(5));
    }
    std::this_thread::sleep_for(milliseconds(50));
    EXPECT_EQ(released, manual ? 3 : 1);
    EXPECT_EQ(event.Wait(0), manual);  // a manual event stays set until Reset
    for (int i = 0; i < 800 && released < 3; ++i) {
      if (!event.Wait(0)) event.Set();  // the automatic event: one Set each
      std::this_thread::sleep_for(milliseconds(5));
    }
    for (std::thread& waiter : waiters) waiter.join();
    EXPECT_EQ(released, 3);
    event.Reset();
    EXPECT_FALSE(event.Wait(0));
  }
}

TEST(WakeUpEventTest, SignalsDoNotCountAndClearTakesThemBack) {
  WakeUpEvent wake;
  ASSERT_TRUE(wake.IsValid());
  EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, 0)));
  wake.Signal();
  wake.Signal();
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, 0).woken);
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, 0).woken);  // seen, still set
  wake.Clear();
  EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, 0)));
  wake.Signal();
  EXPECT_TRUE(wake.Wait(0));  // its own wait takes the signal back
  EXPECT_FALSE(wake.Wait(0));
}

TEST(InterruptedWaitTest, SignalsNeitherShortenNorStretchAWait) {
  static constexpr int kWait = 60;
  vyn::test::SignalStorm storm;
  WakeUpEvent wake;
  Event event(true);
  const int before = vyn::test::signals_delivered;
  const auto expect_full = [](milliseconds waited, const char* what) {
    EXPECT_GE(waited, milliseconds(kWait)) << what;
    EXPECT_LT(waited, Late(kWait)) << what;
  };
  expect_full(Timed([&] { EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, &wake, kWait))); }),
              "descriptor wait");
  expect_full(Timed([] { EXPECT_TRUE(Nothing(WaitForDescriptor(-1, false, nullptr, kWait))); }),
              "bare descriptor wait");
  expect_full(Timed([&] { EXPECT_FALSE(wake.Wait(kWait)); }), "wake-up wait");
  expect_full(Timed([&] { EXPECT_FALSE(event.Wait(kWait)); }), "event wait");
  expect_full(Timed([] { vyn::platform::SleepMilliseconds(kWait); }), "sleep");
  // Waits without a limit end for their wake-up, not for a signal.
  std::thread waker([&] {
    std::this_thread::sleep_for(milliseconds(kWait));
    wake.Signal();
    event.Set();
  });
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, -1).woken);
  EXPECT_TRUE(event.Wait(vyn::platform::kInfinite));
  waker.join();
  EXPECT_GT(vyn::test::signals_delivered - before, 50);  // 300 ms of signals arrived
}

}  // namespace
