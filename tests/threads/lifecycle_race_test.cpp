// Races between a thread's owner, the thread itself and the watchdog's
// registry: each case loops for a few seconds over an interleaving that
// once deadlocked. A deadlock does not fail an assertion, it stops the
// loop: a guard thread then names the case and ends the process.
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

using Clock = std::chrono::steady_clock;

constexpr auto kRaceDuration = std::chrono::seconds(2);
constexpr auto kDeadlockLimit = std::chrono::seconds(60);

// Runs `body` until it returns; should it take longer than the limit, the
// process ends with the case's name on standard error.
void RunOrReportDeadlock(const char* what, const std::function<void()>& body) {
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
  body();
  {
    std::lock_guard lock(mutex);
    done = true;
  }
  done_changed.notify_one();
  guard.join();
}

// Loops `round` until the race duration has passed; returns the rounds.
int Repeat(const std::function<void()>& round) {
  const auto until = Clock::now() + kRaceDuration;
  int rounds = 0;
  while (Clock::now() < until) {
    round();
    ++rounds;
  }
  return rounds;
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
  RunOrReportDeadlock("DestroyThread(true) against the thread's own EndOfThread", [] {
    const int rounds = Repeat([] {
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
    EXPECT_GT(rounds, 10);
  });
}

// The owner destroys the object at once while its thread, having released
// itself, is still on its way out (PostProcessThread unregisters it): the
// destructor must wait for that end, or the thread calls into a
// half-destroyed object and may leave it registered after it is gone.
TEST(LifecycleRaceTest, DestroyingAnObjectWhoseThreadReleasedItself) {
  RunOrReportDeadlock("destructor against a self-released thread", [] {
    const int rounds = Repeat([] {
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
    EXPECT_GT(rounds, 10);
  });
  const auto names = GetVYNThreadMonitor().GetRegisteredThreadNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "race-released"), 0);
}

// The registry lists names (monitor lock, then each thread's lock) while
// threads stop and unregister themselves (monitor lock on their way out).
TEST(LifecycleRaceTest, ListingThreadNamesWhileTheyStop) {
  RunOrReportDeadlock("GetRegisteredThreadNames while monitored threads stop", [] {
    std::atomic<bool> stop{false};
    std::atomic<int> listings{0};
    std::thread lister([&] {
      while (!stop) {
        GetVYNThreadMonitor().GetRegisteredThreadNames();
        ++listings;
      }
    });
    const int rounds = Repeat([] {
      CVYNMonitoredThread thread;
      thread.SetThreadName("race-listed");
      thread.CreateThread(&BeatUntilStopped, &thread, nullptr, 0, 0, true);
      thread.DestroyThread(true);
    });
    stop = true;
    lister.join();
    EXPECT_GT(rounds, 10);
    EXPECT_GT(listings.load(), 10);
  });
  const auto names = GetVYNThreadMonitor().GetRegisteredThreadNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "race-listed"), 0);
}

// A thread renames itself before it signals its start, while its owner
// waits for that start, and again after its stop was requested, while its
// owner waits for its end.
TEST(LifecycleRaceTest, RenamingItselfWhileTheOwnerWaits) {
  RunOrReportDeadlock("SetThreadName from the thread during CreateThread/DestroyThread", [] {
    const int rounds = Repeat([] {
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
    EXPECT_GT(rounds, 10);
  });
}

// Two owners stop the same thread at once: both return after its end, and
// a start in between finds the object still busy.
TEST(LifecycleRaceTest, TwoOwnersStopOneThread) {
  RunOrReportDeadlock("two concurrent DestroyThread(true)", [] {
    const int rounds = Repeat([] {
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
    EXPECT_GT(rounds, 10);
  });
}

}  // namespace
