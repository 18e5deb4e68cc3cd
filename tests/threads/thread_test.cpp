#include "vyn/threads/thread.h"

#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <fstream>
#include <stdexcept>
#include <thread>

#include "vyn/core/status.h"

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr uint32_t kNoId = CVYNThread::kNoThreadId;

// A body that follows the protocol: signal the start, loop while running.
int32_t LoopUntilStopped(void* parameter) {
  auto* thread = static_cast<CVYNThread*>(parameter);
  thread->SignalStart();
  while (thread->IsRunning()) thread->Sleep(1000);
  return 7;
}

int32_t ReturnAtOnce(void* parameter) {
  static_cast<CVYNThread*>(parameter)->SignalStart();
  return 42;
}

std::string KernelName(uint32_t id) {
  std::ifstream comm("/proc/self/task/" + std::to_string(id) + "/comm");
  std::string name;
  std::getline(comm, name);
  return name;
}

TEST(ThreadTest, StartStopAndTheStatesInBetween) {
  CVYNThread thread;
  std::string name = "untouched";
  uint32_t id = 123;
  EXPECT_EQ(thread.DestroyThread(true), VYN_STATUS_SUCCESS);  // nothing to stop
  EXPECT_EQ(thread.SetThreadName("VYN Serial Port X"), VYN_STATUS_SUCCESS);
  EXPECT_EQ(thread.GetThreadName(name), VYN_STATUS_INVALID_HANDLE);
  EXPECT_EQ(thread.GetThreadID(id), VYN_STATUS_INVALID_HANDLE);
  EXPECT_EQ(name + std::to_string(id), "untouched123");
  EXPECT_EQ(thread.GetThreadID(), kNoId);

  ASSERT_EQ(thread.CreateThread(&LoopUntilStopped, &thread, nullptr, 0, 0, true),
            VYN_STATUS_SUCCESS);
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_EQ(thread.CreateThread(&ReturnAtOnce, &thread, nullptr, 0, 0, true), VYN_STATUS_BUSY);
  ASSERT_EQ(thread.GetThreadID(id), VYN_STATUS_SUCCESS);
  ASSERT_EQ(thread.GetThreadName(name), VYN_STATUS_SUCCESS);
  EXPECT_EQ(name, "VYN Serial Port X");
  EXPECT_EQ(KernelName(id), "VYN Serial Port");  // the kernel keeps 15 characters

  // Asked to stop without waiting: still has its thread until collected.
  EXPECT_EQ(thread.DestroyThread(false), VYN_STATUS_SUCCESS);
  EXPECT_FALSE(thread.IsRunning());
  EXPECT_EQ(thread.CreateThread(&ReturnAtOnce, &thread, nullptr, 0, 0, true), VYN_STATUS_BUSY);
  EXPECT_EQ(thread.DestroyThread(true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(thread.GetThreadID(), kNoId);
  EXPECT_EQ(thread.GetExitCode(), 7u);

  // Ready for another run.
  ASSERT_EQ(thread.CreateThread(&ReturnAtOnce, &thread, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(thread.DestroyThread(true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(thread.GetExitCode(), 42u);
}

TEST(ThreadTest, ExitCodesOfFunctionsHooksAndThrowingBodies) {
  CVYNThread thread;
  thread.SetExitCode(5);
  ASSERT_EQ(thread.CreateThread(nullptr, nullptr, nullptr, 0, 0, false), VYN_STATUS_SUCCESS);
  thread.DestroyThread(true);
  EXPECT_EQ(thread.GetExitCode(), 5u);

  // A function that returns by itself leaves the object running and holding
  // its thread until released.
  ASSERT_EQ(thread.CreateThread(&ReturnAtOnce, &thread, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  const auto deadline = Clock::now() + std::chrono::seconds(10);
  while (thread.GetExitCode() != 42u && Clock::now() < deadline) std::this_thread::yield();
  EXPECT_EQ(thread.GetExitCode(), 42u);
  EXPECT_TRUE(thread.IsRunning());
  EXPECT_NE(thread.GetThreadID(), kNoId);
  EXPECT_EQ(thread.EndOfThread(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(thread.GetThreadID(), kNoId);
  EXPECT_FALSE(thread.IsRunning());

  // A throwing body ends its thread, not the process; a creator waiting for
  // a start that never comes is released too.
  const auto thrower = [](void*) -> int32_t { throw std::runtime_error("boom"); };
  ASSERT_EQ(thread.CreateThread(thrower, nullptr, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  thread.DestroyThread(true);
  EXPECT_EQ(thread.GetExitCode(), static_cast<uint32_t>(VYN_STATUS_EXCEPTION_CAUGHT));
}

TEST(ThreadTest, SleepIsCutShortByStopAndSoftStop) {
  CVYNThread thread;
  auto start = Clock::now();
  EXPECT_EQ(thread.Sleep(30), VYN_STATUS_SUCCESS);
  EXPECT_GE(Clock::now() - start, milliseconds(30));

  EXPECT_EQ(thread.SetSoftStop(), VYN_STATUS_SUCCESS);
  start = Clock::now();
  EXPECT_EQ(thread.Sleep(5000), VYN_STATUS_OPERATION_BROKEN);
  EXPECT_EQ(thread.Sleep(5000), VYN_STATUS_OPERATION_BROKEN);
  EXPECT_LT(Clock::now() - start, milliseconds(2000));
  EXPECT_FALSE(thread.IsRunning());  // a soft stop leaves the flag alone
  EXPECT_EQ(thread.ResetSoftStop(), VYN_STATUS_SUCCESS);
  EXPECT_EQ(thread.Sleep(1), VYN_STATUS_SUCCESS);

  // Another thread's stop request ends a long sleep at once.
  static std::atomic<int32_t> slept{1};
  const auto sleeper = [](void* raw) -> int32_t {
    static_cast<CVYNThread*>(raw)->SignalStart();
    slept = static_cast<CVYNThread*>(raw)->Sleep(60000);
    return 0;
  };
  ASSERT_EQ(thread.CreateThread(sleeper, &thread, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  start = Clock::now();
  thread.DestroyThread(true);
  EXPECT_LT(Clock::now() - start, milliseconds(5000));
  EXPECT_EQ(slept, VYN_STATUS_OPERATION_BROKEN);
}

TEST(ThreadTest, StopsRequestedEarlyFromInsideOrByDestruction) {
  // A stop before the start does not keep the thread from running.
  CVYNThread early;
  early.DestroyThread(false);
  early.SetSoftStop();
  ASSERT_EQ(early.CreateThread(&LoopUntilStopped, &early, nullptr, 1, 0, true), VYN_STATUS_SUCCESS);
  EXPECT_TRUE(early.IsRunning());
  early.DestroyThread(true);
  EXPECT_EQ(early.GetExitCode(), 7u);

  // A thread that stops itself cannot wait for itself; the owner collects it.
  const auto stop_self = [](void* raw) -> int32_t {
    auto* thread = static_cast<CVYNThread*>(raw);
    thread->SignalStart();
    return thread->DestroyThread(true) == VYN_STATUS_SUCCESS && !thread->IsRunning() ? 1 : 2;
  };
  ASSERT_EQ(early.CreateThread(stop_self, &early, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  early.DestroyThread(true);
  EXPECT_EQ(early.GetExitCode(), 1u);

  // Destroying the object stops its thread and waits for it.
  static std::atomic<bool> finished{false};
  {
    CVYNThread doomed;
    const auto body = [](void* raw) -> int32_t {
      LoopUntilStopped(raw);
      finished = true;
      return 0;
    };
    ASSERT_EQ(doomed.CreateThread(body, &doomed, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  }
  EXPECT_TRUE(finished);
}

}  // namespace
