// Costs of the core services next to the plain facilities they wrap.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <mutex>
#include <string>

#include "vyn/core/ini_manager.h"
#include "vyn/core/synchronize.h"
#include "vyn/core/time_helpers.h"
#include "vyn/platform/internal/profile_testing.h"
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
  vyn::seams::SetProfileSettleTime(0);  // the copy is kept from the first lookup on
  CVYNIniManager ini;
  std::string value;
  for (auto _ : state) {
    ini.GetEntry("Bench", "Key999", &value, path);
    benchmark::DoNotOptimize(value);
  }
  vyn::seams::SetProfileSettleTime(2000);
  unlink(path);
}
BENCHMARK(BM_IniGetEntryFrom1000Keys);

// A lookup in a 1 MB file of 20 sections: with the parsed copy kept
// (argument 1, the steady state of a file not changed lately) and with the
// file read and parsed again on every lookup (argument 0, as right after a
// change).
void BM_IniGetEntryFrom1MBFile(benchmark::State& state) {
  char path[] = "/tmp/vyn-bench-ini-XXXXXX";
  const int fd = mkstemp(path);
  if (fd < 0) {
    state.SkipWithError("mkstemp failed");
    return;
  }
  std::string content;
  for (int section = 0; content.size() < (1u << 20); ++section) {
    content += "[Section" + std::to_string(section) + "]\n";
    for (int key = 0; key < 1000; ++key) {
      content += "Key" + std::to_string(key) + "=value number " + std::to_string(key) + "\n";
    }
  }
  if (write(fd, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
    state.SkipWithError("write failed");
  }
  close(fd);
  const bool kept = state.range(0) != 0;
  vyn::seams::SetProfileSettleTime(kept ? 0 : UINT32_MAX);
  const size_t loads = vyn::seams::ProfileFileLoads();
  CVYNIniManager ini;
  std::string value;
  for (auto _ : state) {
    ini.GetEntry("Section7", "Key999", &value, path);
    benchmark::DoNotOptimize(value);
  }
  state.counters["file_reads"] = static_cast<double>(vyn::seams::ProfileFileLoads() - loads);
  state.SetLabel(std::to_string(content.size()) + " bytes");
  vyn::seams::SetProfileSettleTime(2000);
  unlink(path);
}
BENCHMARK(BM_IniGetEntryFrom1MBFile)->Arg(1)->Arg(0);

}  // namespace

BENCHMARK_MAIN();
