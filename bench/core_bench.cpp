// Costs of the core services next to the plain facilities they wrap.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

#include "vyn/core/ini_manager.h"
#include "vyn/core/synchronize.h"
#include "vyn/core/time_helpers.h"
#include "vyn/platform/profile.h"

namespace {

void BM_SynchronizeEnterLeave(benchmark::State& state) {
  CRITICAL_SECTION lock;
  for (auto _ : state) {
    CVYNSynchronize guard(&lock, true);
    benchmark::DoNotOptimize(guard);
  }
}
BENCHMARK(BM_SynchronizeEnterLeave);

void BM_RecursiveMutexLockUnlock(benchmark::State& state) {
  std::recursive_mutex mutex;
  for (auto _ : state) {
    std::lock_guard guard(mutex);
    benchmark::DoNotOptimize(mutex);
  }
}
BENCHMARK(BM_RecursiveMutexLockUnlock);

void BM_GetSystemTimeInMs(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(GetSystemTimeInMs());
}
BENCHMARK(BM_GetSystemTimeInMs);

void BM_ClockGettimeRealtime(benchmark::State& state) {
  timespec now{};
  for (auto _ : state) {
    clock_gettime(CLOCK_REALTIME, &now);
    benchmark::DoNotOptimize(now);
  }
}
BENCHMARK(BM_ClockGettimeRealtime);

void BM_IniGetEntryFrom1000Keys(benchmark::State& state) {
  char path[] = "/tmp/vyn-bench-ini-XXXXXX";
  const int fd = mkstemp(path);
  if (fd < 0) {
    state.SkipWithError("mkstemp failed");
    return;
  }
  std::string content = "[Bench]\n";
  for (int i = 0; i < 1000; ++i) {
    content += "Key" + std::to_string(i) + "=value number " + std::to_string(i) + "\n";
  }
  if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
    state.SkipWithError("write failed");
  }
  close(fd);
  CVYNIniManager ini;
  std::string value;
  for (auto _ : state) {
    ini.GetEntry("Bench", "Key999", &value, path);  // the last key: a full scan
    benchmark::DoNotOptimize(value);
  }
  unlink(path);
}
BENCHMARK(BM_IniGetEntryFrom1000Keys);

}  // namespace

BENCHMARK_MAIN();
