// Thread start-up, heartbeat and watchdog costs.
#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "vyn/threads/monitored_thread.h"
#include "vyn/threads/thread.h"
#include "vyn/threads/thread_monitor.h"

namespace {

using Clock = std::chrono::steady_clock;

struct StartProbe {
  Clock::time_point body_ran;
};

int32_t NoteStart(void* raw) {
  static_cast<StartProbe*>(raw)->body_ran = Clock::now();
  return 0;
}

// From the call that starts the thread until its body runs.
void BM_CVYNThreadStartToBody(benchmark::State& state) {
  for (auto _ : state) {
    CVYNThread thread;
    StartProbe probe;
    const auto start = Clock::now();
    thread.CreateThread(&NoteStart, &probe, nullptr, 0, 0, false);
    thread.DestroyThread(true);
    state.SetIterationTime(std::chrono::duration<double>(probe.body_ran - start).count());
  }
}
BENCHMARK(BM_CVYNThreadStartToBody)->UseManualTime();

void BM_StdThreadStartToBody(benchmark::State& state) {
  for (auto _ : state) {
    StartProbe probe;
    const auto start = Clock::now();
    std::thread thread([&probe] { NoteStart(&probe); });
    thread.join();
    state.SetIterationTime(std::chrono::duration<double>(probe.body_ran - start).count());
  }
}
BENCHMARK(BM_StdThreadStartToBody)->UseManualTime();

void BM_Heartbeat(benchmark::State& state) {
  CVYNMonitoredThread thread;
  thread.UpdateStatus();  // registers once; the loop measures the steady state
  for (auto _ : state) thread.UpdateStatus();
  thread.Unregister();
}
BENCHMARK(BM_Heartbeat);

void BM_WatchdogCheckOf1000Threads(benchmark::State& state) {
  std::vector<std::unique_ptr<CVYNMonitoredThread>> threads(1000);
  for (auto& thread : threads) {
    thread = std::make_unique<CVYNMonitoredThread>();
    thread->UpdateStatus();
  }
  for (auto _ : state) GetVYNThreadMonitor().CheckObjects();
  for (auto& thread : threads) thread->Unregister();
}
BENCHMARK(BM_WatchdogCheckOf1000Threads);

}  // namespace

BENCHMARK_MAIN();
