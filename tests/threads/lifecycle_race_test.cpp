// Races between a thread's owner, the thread itself and the watchdog's
// registry: each case repeats, a fixed number of rounds, an interleaving that
// once deadlocked. A deadlock does not fail an assertion, it stops the loop:
// a guard thread then names the case and ends the process.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <thread>

#include "vyn/core/status.h"
#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread_monitor.h"

namespace {

constexpr auto kDeadlockLimit = std::chrono::seconds(60);

// Runs `round` `rounds` times (as many as a fraction of a second allows); should that take longer
// than the limit, the process ends with the case's name on standard error.
void Race(const char* what, int rounds, const std::function<void()>& round) {
  std::mutex mutex;
  std::condition_variable done_changed;
  bool done = false;
  std::thread guard([&] {
    std::unique_lock lock(mutex);
    if (!done_changed.wait_for(lock, kDeadlockLimit, [&] { return done; })) {
      std::fprintf(stderr, "deadlock: %s did not finish within %lld s\n", what,
                   static_cast<long long>(kDeadlockLimit.count()));
      std::abort();
    }
  });
  for (int i = 0; i < rounds && !::testing::Test::HasFatalFailure(); ++i) round();
  {
    std::lock_guard lock(mutex);
    done = true;
  }
  done_changed.notify_one();
  guard.join();
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
    thread->Sleep(1);
  }
  return 0;
}

// The owner waits for the end while the thread, on its way out, releases
// itself (as a receiving thread does when its port went away).
TEST(LifecycleRaceTest, StopWhileTheThreadReleasesItself) {
  Race("DestroyThread(true) against the thread's own EndOfThread", 1000, [] {
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
  Race("destructor against a self-released thread", 300, [] {
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
  Race("GetRegisteredThreadNames while monitored threads stop", 200, [] {
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
  Race("SetThreadName from the thread during CreateThread/DestroyThread", 200, [] {
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

// Two owners stop the same thread at once: both return after its end, and
// a start in between finds the object still busy.
TEST(LifecycleRaceTest, TwoOwnersStopOneThread) {
  Race("two concurrent DestroyThread(true)", 500, [] {
    CVYNMonitoredThread thread;
    ASSERT_EQ(thread.CreateThread(&BeatUntilStopped, &thread, nullptr, 0, 0, true),
              VYN_STATUS_SUCCESS);
    std::thread second([&] { thread.DestroyThread(true); });
    thread.DestroyThread(true);
    second.join();
    EXPECT_EQ(thread.GetThreadID(), CVYNThread::kNoThreadId);
    EXPECT_EQ(thread.CreateThread(&BeatUntilStopped, &thread, nullptr, 0, 0, true),
              VYN_STATUS_SUCCESS);
    thread.DestroyThread(true);
  });
}

}  // namespace
