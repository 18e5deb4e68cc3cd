// What a backlog costs in memory: the log's entry queue while its output
// thread is held up (a stalled disk or view), and a receiver queue whose
// application does not keep up. Both queues are unbounded on purpose; these
// figures are what their headers quote. Each run queues 100,000 items and
// reports the growth of the resident set per item.
#include <benchmark/benchmark.h>
#include <unistd.h>

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "vyn/core/memory_controls.h"
#include "vyn/core/message_types.h"
#include "vyn/device/frame_format.h"
#include "vyn/log/system_log.h"
#include "vyn/queue/message_queue.h"

namespace {

constexpr int kItems = 100000;

int64_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  int64_t pages = 0;
  int64_t resident = 0;
  statm >> pages >> resident;
  return resident * sysconf(_SC_PAGESIZE);
}

void BM_ReceiverBacklogPerFrameMessage(benchmark::State& state) {
  for (auto _ : state) {
    CVYNMessageQueue receiver;  // no dispatch thread: nothing is handled
    _SERIAL_FRAME_RECORD record{};
    CVYNMessage message(MSG_SERIAL_FRAME_RECEIVED, reinterpret_cast<unsigned char*>(&record),
                        static_cast<int32_t>(sizeof record));
    const int64_t before = ResidentBytes();
    for (int i = 0; i < kItems; ++i) receiver.PushMessage(message);
    const int64_t after = ResidentBytes();
    state.counters["bytes_per_message"] = static_cast<double>(after - before) / kItems;
    state.counters["record_bytes"] = sizeof record;
    receiver.Terminate();
  }
}
BENCHMARK(BM_ReceiverBacklogPerFrameMessage)->Iterations(1)->Unit(benchmark::kMillisecond);

// A view that holds the output thread up until released, as a stalled
// toolkit or disk would.
class StalledView : public CMemoryEdit {
 public:
  void ReplaceSel(const std::string& text, bool can_undo) override {
    while (stalled_) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    CMemoryEdit::ReplaceSel(text, can_undo);
  }
  void Release() { stalled_ = false; }

 private:
  std::atomic<bool> stalled_{true};
};

void BM_LogBacklogPerEntry(benchmark::State& state) {
  const std::filesystem::path previous = std::filesystem::current_path();
  char pattern[] = "/tmp/vyn-backlog-XXXXXX";
  const char* directory = mkdtemp(pattern);
  if (directory == nullptr) {
    state.SkipWithError("no temporary directory");
    return;
  }
  std::filesystem::current_path(directory);
  for (auto _ : state) {
    StalledView view;
    CVYNSystemLogEx& log = GetVYNSystemLogEx();
    log.SetEnableOutput(true);
    log.Initialize(&view, "backlog", "");
    const std::string text(60, 'x');  // a typical entry
    const int64_t before = ResidentBytes();
    for (int i = 0; i < kItems; ++i) log.AddOutput(text, VYN_EVENT_INFORMATION, "", "Bench", "");
    const int64_t after = ResidentBytes();
    state.counters["bytes_per_entry"] = static_cast<double>(after - before) / kItems;
    state.counters["backlog"] = log.GetEntryCount();
    view.Release();
    log.Terminate();
    log.SetEnableOutput(false);
  }
  std::filesystem::current_path(previous);
  std::filesystem::remove_all(directory);
}
BENCHMARK(BM_LogBacklogPerEntry)->Iterations(1)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
