#include "vyn/threads/monitored_thread.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "vyn/core/status.h"
#include "vyn/platform/system_time.h"
#include "vyn/threads/thread_monitor.h"

namespace {

size_t CountRegistered(const std::string& name) {
  const auto names = GetVYNThreadMonitor().GetRegisteredThreadNames();
  return static_cast<size_t>(std::count(names.begin(), names.end(), name));
}

int32_t BeatUntilStopped(void* parameter) {
  auto* thread = static_cast<CVYNMonitoredThread*>(parameter);
  thread->SignalStart();
  while (thread->IsRunning()) {
    thread->UpdateStatus();
    thread->Sleep(20);
  }
  return 0;
}

TEST(MonitoredThreadTest, RegisteredWhileItsThreadRunsWithFreshHeartbeats) {
  CVYNMonitoredThread first;
  CVYNMonitoredThread second;
  EXPECT_EQ(second.GetSequenceNumber(), first.GetSequenceNumber() + 1);
  EXPECT_EQ(first.GetLastTimestamp(), 0);

  first.SetThreadName("monitored-a");
  ASSERT_EQ(first.CreateThread(&BeatUntilStopped, &first, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  EXPECT_EQ(CountRegistered("monitored-a"), 1u);
  const int64_t now = vyn::platform::GetSystemTimeAsFileTime();
  EXPECT_NEAR(static_cast<double>(first.GetLastTimestamp()), static_cast<double>(now), 5e7);
  first.DestroyThread(true);
  EXPECT_EQ(CountRegistered("monitored-a"), 0u);

  // A heartbeat from a thread that never registered puts it in the list once.
  second.SetThreadName("monitored-b");
  // Waiting for the start of a thread without a function returns once its
  // hooks have run, so its own registration cannot race the heartbeat below.
  ASSERT_EQ(second.CreateThread(nullptr, nullptr, nullptr, 0, 0, true), VYN_STATUS_SUCCESS);
  second.UpdateStatus();  // the hooks ran and left; now an explicit heartbeat
  second.UpdateStatus();
  const auto names = GetVYNThreadMonitor().GetRegisteredThreadNames();
  EXPECT_EQ(std::count(names.begin(), names.end(), "monitored-b"), 1);
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

}  // namespace
