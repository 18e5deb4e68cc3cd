// Monitored threads in the watchdog's registry, and the races between a
// thread's owner, the thread itself and the registry: each race repeats, a
// fixed number of rounds, an interleaving that once deadlocked.
#include "vyn/threads/monitored_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "vyn/core/status.h"
#include "vyn/platform/system_time.h"
#include "vyn/threads/thread_monitor.h"

namespace {

// Runs `round` `rounds` times (as many as a fraction of a second allows). A
// deadlock shows as a case that never ends: gtest has named it on its way in.
void Race(int rounds, const std::function<void()>& round) {
  for (int i = 0; i < rounds && !::testing::Test::HasFatalFailure(); ++i) round();
}

size_t CountRegistered(const std::string& name) {
  const auto names = GetVYNThreadMonitor().GetRegisteredThreadNames();
  return static_cast<size_t>(std::count(names.begin(), names.end(), name));
}

int32_t BeatUntilStopped(void* parameter) {
  auto* thread = static_cast<CVYNMonitoredThread*>(parameter);
  thread->SignalStart();
  while (thread->IsRunning()) {
    thread->UpdateStatus();
    thread->Sleep(5);
  }
  return 0;
}

TEST(MonitoredThreadTest, RegisteredWhileItsThreadRunsWithFreshHeartbeats) {
  CVYNMonitoredThread first;
  CVYNMonitoredThread second;
  EXPECT_EQ(second.GetSequenceNumber(), first.GetSequenceNumber() + 1);
  EXPECT_EQ(first.GetLastTimestamp(), 0);
  const size_t listed = GetVYNThreadMonitor().GetRegisteredThreadNames().size();

  first.SetThreadName("monitored-a");
  ASSERT_EQ(first.CreateThread(&BeatUntilStopped, &first, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(CountRegistered("monitored-a"), 1u);
  const int64_t now = vyn::platform::GetSystemTimeAsFileTime();
  EXPECT_NEAR(static_cast<double>(first.GetLastTimestamp()), static_cast<double>(now), 5e7);
  first.DestroyThread(true);  // unregisters: a stopped object is listed without its name
  EXPECT_EQ(GetVYNThreadMonitor().GetRegisteredThreadNames().size(), listed);

  // A heartbeat from a thread that never registered puts it in the list once.
  second.SetThreadName("monitored-b");
  // Waiting for the start of a thread without a function returns once its
  // hooks have run, so its own registration cannot race the heartbeat below.
  ASSERT_EQ(second.CreateThread(nullptr, nullptr, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  second.UpdateStatus();  // the hooks ran and left; now an explicit heartbeat
  second.UpdateStatus();
  EXPECT_EQ(CountRegistered("monitored-b"), 1u);
  second.Unregister();
  second.DestroyThread(true);
  EXPECT_EQ(CountRegistered("monitored-b"), 0u);
}

TEST(MonitoredThreadTest, RegistryKeepsDuplicatesAndRemovesTheFirst) {
  CVYNThreadMonitor& monitor = GetVYNThreadMonitor();
  CVYNMonitoredThread object;
  object.SetThreadName("dup");
  ASSERT_EQ(object.CreateThread(&BeatUntilStopped, &object, nullptr, 0, 0, true),
            VYN_STATUS_SUCCESS);
  monitor.RegisterObject(&object);
  EXPECT_EQ(CountRegistered("dup"), 2u);
  monitor.UnregisterObject(&object);
  EXPECT_EQ(CountRegistered("dup"), 1u);
  CVYNMonitoredThread stranger;
  monitor.UnregisterObject(&stranger);
  EXPECT_EQ(CountRegistered("dup"), 1u);
  object.DestroyThread(true);
  EXPECT_EQ(CountRegistered("dup"), 0u);
}

TEST(MonitoredThreadTest, TwoHundredThreadsComeAndGoTogether) {
  const size_t before = GetVYNThreadMonitor().GetRegisteredThreadNames().size();
  std::vector<std::unique_ptr<CVYNMonitoredThread>> threads(200);
  for (auto& thread : threads) thread = std::make_unique<CVYNMonitoredThread>();
  std::vector<std::thread> starters;
  for (int part = 0; part < 4; ++part) {
    starters.emplace_back([&threads, part] {
      for (size_t i = static_cast<size_t>(part); i < threads.size(); i += 4) {
        threads[i]->SetThreadName("crowd");
        threads[i]->CreateThread(&BeatUntilStopped, threads[i].get(), nullptr, 0, 0, true);
      }
    });
  }
  for (auto& starter : starters) starter.join();
  EXPECT_EQ(CountRegistered("crowd"), 200u);
  std::vector<std::thread> stoppers;
  for (int part = 0; part < 4; ++part) {
    stoppers.emplace_back([&threads, part] {
      for (size_t i = static_cast<size_t>(part); i < threads.size(); i += 4) threads[i].reset();
    });
  }
  for (auto& stopper : stoppers) stopper.join();
  EXPECT_EQ(GetVYNThreadMonitor().GetRegisteredThreadNames().size(), before);
}

// The owner waits for the end while the thread, on its way out, releases
// itself (as a receiving thread does when its port went away).
TEST(LifecycleRaceTest, StopWhileTheThreadReleasesItself) {
  Race(1000, [] {
    CVYNMonitoredThread thread;
    const auto body = [](void* raw) -> int32_t {
      auto* self = static_cast<CVYNMonitoredThread*>(raw);
      self->SignalStart();
      while (self->IsRunning()) self->Sleep(1);
      self->EndOfThread();
      return 3;
    };
    ASSERT_EQ(thread.CreateThread(body, &thread, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
    thread.DestroyThread(true);
    EXPECT_FALSE(thread.IsRunning());
    EXPECT_EQ(thread.GetThreadID(), CVYNThread::kNoThreadId);
    EXPECT_EQ(thread.GetExitCode(), 3u);
  });
}

// The owner destroys the object at once while its thread, having released
// itself, is still on its way out (PostProcessThread unregisters it): the
// destructor must wait for that end, or the thread calls into a
// half-destroyed object and may leave it registered after it is gone.
TEST(LifecycleRaceTest, DestroyingAnObjectWhoseThreadReleasedItself) {
  Race(300, [] {
    auto thread = std::make_unique<CVYNMonitoredThread>();
    thread->SetThreadName("race-released");
    const auto body = [](void* raw) -> int32_t {
      auto* self = static_cast<CVYNMonitoredThread*>(raw);
      self->SignalStart();
      self->EndOfThread();
      return 0;
    };
    ASSERT_EQ(thread->CreateThread(body, thread.get(), nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
    thread.reset();
  });
  EXPECT_EQ(CountRegistered("race-released"), 0u);
}

// The registry lists names (monitor lock, then each thread's lock) while
// threads stop and unregister themselves (monitor lock on their way out).
TEST(LifecycleRaceTest, ListingThreadNamesWhileTheyStop) {
  std::atomic<bool> stop{false};
  std::atomic<int> listings{0};
  std::thread lister([&] {
    while (!stop) {
      GetVYNThreadMonitor().GetRegisteredThreadNames();
      ++listings;
    }
  });
  Race(200, [] {
    CVYNMonitoredThread thread;
    thread.SetThreadName("race-listed");
    thread.CreateThread(&BeatUntilStopped, &thread, nullptr, 0, 0, true);
    thread.DestroyThread(true);
  });
  stop = true;
  lister.join();
  EXPECT_GT(listings.load(), 10);
  EXPECT_EQ(CountRegistered("race-listed"), 0u);
}

// A thread renames itself before it signals its start, while its owner
// waits for that start, and again after its stop was requested, while its
// owner waits for its end.
TEST(LifecycleRaceTest, RenamingItselfWhileTheOwnerWaits) {
  Race(200, [] {
    CVYNMonitoredThread thread;
    const auto body = [](void* raw) -> int32_t {
      auto* self = static_cast<CVYNMonitoredThread*>(raw);
      self->SetThreadName("renamed-early");
      self->SignalStart();
      while (self->IsRunning()) self->Sleep(1);
      self->SetThreadName("renamed-late");
      return 0;
    };
    thread.SetThreadName("race-renamed");
    ASSERT_EQ(thread.CreateThread(body, &thread, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
    std::string name;
    EXPECT_EQ(thread.GetThreadName(name), VYN_STATUS_SUCCESS);
    EXPECT_EQ(name, "renamed-early");
    thread.DestroyThread(true);
  });
}

// Two owners stop the same thread at once: each returns only after its end,
// and the object can start again.
TEST(LifecycleRaceTest, TwoOwnersStopOneThread) {
  Race(500, [] {
    CVYNMonitoredThread thread;
    ASSERT_EQ(thread.CreateThread(&BeatUntilStopped, &thread, nullptr, 0, 0, true),
              VYN_STATUS_SUCCESS);
    std::atomic<bool> second_saw_the_end{false};
    std::thread second([&] {
      thread.DestroyThread(true);
      second_saw_the_end = thread.GetThreadID() == CVYNThread::kNoThreadId;
    });
    thread.DestroyThread(true);
    EXPECT_EQ(thread.GetThreadID(), CVYNThread::kNoThreadId);
    second.join();
    EXPECT_TRUE(second_saw_the_end);
    EXPECT_EQ(thread.CreateThread(&BeatUntilStopped, &thread, nullptr, 0, 0, true),
              VYN_STATUS_SUCCESS);
    thread.DestroyThread(true);
  });
}

}  // namespace
