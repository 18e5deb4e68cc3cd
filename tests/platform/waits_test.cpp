// Events, wake-ups and sleeps: whom a signal releases; and that signals
// arriving meanwhile neither shorten nor stretch a wait, nor cut a file's
// write short.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <vector>

#include "tests/platform/wait_helpers.h"
#include "tests/support/temp_dir.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/event.h"
#include "vyn/platform/file.h"
#include "vyn/platform/scoped_descriptor.h"
#include "vyn/platform/wake_up_event.h"

namespace {

using namespace vyn::platform;  // NOLINT: the layer under test
using namespace vyn::test;      // NOLINT

bool Nothing(const DescriptorReadiness& r) {
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

TEST(InterruptedWaitTest, SignalsNeitherShortenNorStretchAWaitNorCutAWriteShort) {
  static constexpr int kWait = 60;
  // A pipe with a slow reader, opened first so that opening the writing end
  // never waits: the writer blocks, and WriteAll must go on from wherever
  // each interrupted write stopped.
  TempDir directory;
  const std::string fifo = directory.File("pipe");
  ASSERT_EQ(mkfifo(fifo.c_str(), 0600), 0);
  const ScopedDescriptor in(open(fifo.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
  File pipe;
  ASSERT_TRUE(pipe.OpenForWriting(fifo)) << pipe.GetLastErrorText();
  fcntl(in.get(), F_SETFL, 0);
  std::vector<uint8_t> sent(size_t{2} << 20);
  for (size_t i = 0; i < sent.size(); ++i) sent[i] = static_cast<uint8_t>(i * 7 + i / 251);
  std::vector<uint8_t> received(sent.size() + 1);
  size_t got = 0;
  std::thread reader([&] {
    ssize_t count = 0;
    while ((count = read(in.get(), &received[got],
                         std::min<size_t>(16384, sent.size() + 1 - got))) > 0) {
      got += static_cast<size_t>(count);
      std::this_thread::sleep_for(std::chrono::microseconds(300));
    }
  });
  SignalStorm storm;
  const int before = signals_delivered;
  size_t written = 0;
  EXPECT_TRUE(pipe.WriteAll(sent.data(), sent.size(), &written)) << pipe.GetLastErrorText();
  pipe.Close();
  reader.join();
  EXPECT_EQ(written, sent.size());
  EXPECT_TRUE(got == sent.size() && std::equal(sent.begin(), sent.end(), received.begin())) << got;

  WakeUpEvent wake;
  Event event(true);
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
  expect_full(Timed([] { SleepMilliseconds(kWait); }), "sleep");
  // Waits without a limit end for their wake-up, not for a signal.
  std::thread waker([&] {
    std::this_thread::sleep_for(milliseconds(kWait));
    wake.Signal();
    event.Set();
  });
  EXPECT_TRUE(WaitForDescriptor(-1, false, &wake, -1).woken);
  EXPECT_TRUE(event.Wait(kInfinite));
  waker.join();
  EXPECT_GT(signals_delivered - before, 50);  // the storm did reach the calls
}

}  // namespace
