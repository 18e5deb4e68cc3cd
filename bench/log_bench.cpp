// The system log: what AddOutput costs the calling thread, and how many
// entries per second go from AddOutput into the CSV file, next to spdlog's
// asynchronous file logger writing lines of the same length.
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <spdlog/async.h>
#include <spdlog/async_logger.h>
#include <spdlog/pattern_formatter.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <latch>
#include <string>
#include <thread>
#include <vector>

#include "vyn/log/system_log.h"

namespace {

using Clock = std::chrono::steady_clock;

// A text of the length services typically log.
const std::string kText = "Frame received from the MCPU: command 0x0123, 42 bytes, status ok";

// A fresh directory that becomes the current one (the log writes to
// ./Logs), removed with everything in it afterwards.
class ScratchDirectory {
 public:
  ScratchDirectory() : previous_(std::filesystem::current_path()) {
    std::string pattern = (std::filesystem::temp_directory_path() / "vyn-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) != nullptr) path_ = pattern;
    std::filesystem::current_path(path_);
  }
  ~ScratchDirectory() {
    std::filesystem::current_path(previous_);
    std::error_code ignored;
    std::filesystem::remove_all(path_, ignored);
  }
  const std::filesystem::path& path() const { return path_; }

 private:
  std::filesystem::path previous_;
  std::filesystem::path path_;
};

uintmax_t BytesIn(const std::filesystem::path& directory) {
  uintmax_t bytes = 0;
  for (const auto& item : std::filesystem::recursive_directory_iterator(directory)) {
    if (item.is_regular_file()) bytes += item.file_size();
  }
  return bytes;
}

// Each producer times every call; median and 99th percentile over all calls
// of all producers. The output thread writes to disk meanwhile.
void BM_AddOutputLatency(benchmark::State& state) {
  const int producers = static_cast<int>(state.range(0));
  constexpr int kCallsPerProducer = 100000;
  for (auto _ : state) {
    ScratchDirectory scratch;
    CVYNSystemLogEx& log = GetVYNSystemLogEx();
    log.Initialize(nullptr, "Bench", "V 1");
    std::vector<std::vector<int64_t>> samples(producers, std::vector<int64_t>(kCallsPerProducer));
    std::latch start(producers);
    std::vector<std::thread> threads;
    threads.reserve(producers);
    const auto begin = Clock::now();
    for (int p = 0; p < producers; ++p) {
      threads.emplace_back([&, p] {
        start.arrive_and_wait();
        for (int64_t& sample : samples[p]) {
          const auto before = Clock::now();
          log.AddOutput(kText, VYN_EVENT_INFORMATION, "", "CVYNBench", "");
          sample =
              std::chrono::duration_cast<std::chrono::nanoseconds>(Clock::now() - before).count();
        }
      });
    }
    for (std::thread& thread : threads) thread.join();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    log.Terminate();
    std::vector<int64_t> all;
    for (const auto& some : samples) all.insert(all.end(), some.begin(), some.end());
    const auto at = [&all](double fraction) {
      auto nth = all.begin() + static_cast<std::ptrdiff_t>(fraction * (all.size() - 1));
      std::nth_element(all.begin(), nth, all.end());
      return static_cast<double>(*nth);
    };
    state.counters["median_ns"] = at(0.5);
    state.counters["p99_ns"] = at(0.99);
    state.counters["calls"] = static_cast<double>(all.size());
  }
}
BENCHMARK(BM_AddOutputLatency)
    ->Arg(1)
    ->Arg(2)
    ->Arg(8)
    ->ArgName("producers")
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

constexpr int kEntries = 1000000;

// From the first AddOutput until Terminate has returned: every entry is in
// the files, and the last file is also synced to the device.
void BM_SystemLogToFile(benchmark::State& state) {
  for (auto _ : state) {
    ScratchDirectory scratch;
    CVYNSystemLogEx& log = GetVYNSystemLogEx();
    log.Initialize(nullptr, "Bench", "V 1");
    const auto begin = Clock::now();
    for (int i = 0; i < kEntries; ++i) {
      log.AddOutput(kText, VYN_EVENT_INFORMATION, "", "CVYNBench", "");
    }
    log.Terminate();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    state.counters["bytes_per_entry"] = static_cast<double>(BytesIn(scratch.path())) / kEntries;
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_SystemLogToFile)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

// The same lines through spdlog: its time stamp, the level name padded to the
// length of "information", and the number inside the message, CR LF ends.
void BM_SpdlogAsyncToFile(benchmark::State& state) {
  for (auto _ : state) {
    ScratchDirectory scratch;
    const std::string path = (scratch.path() / "spdlog.csv").string();
    auto pool = std::make_shared<spdlog::details::thread_pool>(8192, 1);
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>(path, true);
    auto logger = std::make_shared<spdlog::async_logger>("bench", sink, pool,
                                                         spdlog::async_overflow_policy::block);
    logger->set_formatter(std::make_unique<spdlog::pattern_formatter>(
        "%Y-%m-%d;%H:%M:%S;%e;0;%l;;CVYNBench;;\"%v\"", spdlog::pattern_time_type::local, "\r\n"));
    const auto begin = Clock::now();
    // Numbers that run on over the iterations, as the log's own do.
    static int64_t number = 0;
    for (int i = 0; i < kEntries; ++i) logger->info("{};{}.......", ++number, kText);
    // The pool drains its queue before its thread ends; the sink's file is
    // closed when the last reference goes.
    logger.reset();
    pool.reset();
    sink.reset();
    state.SetIterationTime(std::chrono::duration<double>(Clock::now() - begin).count());
    state.counters["bytes_per_entry"] = static_cast<double>(BytesIn(scratch.path())) / kEntries;
  }
  state.SetItemsProcessed(state.iterations() * kEntries);
}
BENCHMARK(BM_SpdlogAsyncToFile)->Iterations(3)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
