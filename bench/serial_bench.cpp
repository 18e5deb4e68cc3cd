// The serial driver over a real pseudo-terminal: latencies of both
// directions, the cost of an idle line, and frames per second both ways with
// four sending threads.
// The bench itself plays the device on the master side, with bytes it
// writes and reads directly, so that only the driver is measured.
#include <benchmark/benchmark.h>
#include <dirent.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <fstream>
#include <mutex>
#include <sstream>
#include <thread>
#include <vector>

#include "support/pseudo_terminal.h"
#include "vyn/core/message_types.h"
#include "vyn/device/command_set.h"
#include "vyn/queue/message_queue.h"
#include "vyn/serial/serial_port.h"

namespace {

using Clock = std::chrono::steady_clock;

double Micros(Clock::duration d) { return std::chrono::duration<double, std::micro>(d).count(); }

void Percentiles(benchmark::State& state, std::vector<double> samples) {
  if (samples.empty()) return;
  std::sort(samples.begin(), samples.end());
  state.counters["p50_us"] = samples[samples.size() / 2];
  state.counters["p99_us"] = samples[samples.size() * 99 / 100];
}

// Notes when received frames reach a receiver's dispatch thread.
class ArrivalRecorder : public CVYNMessageQueue {
 public:
  std::atomic<uint64_t> received{0};
  std::atomic<int64_t> last_arrival_ns{0};

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override {
    if (message.GetMessageType() == MSG_SERIAL_FRAME_RECEIVED) {
      last_arrival_ns = Clock::now().time_since_epoch().count();
      ++received;
    }
    return 0;
  }
};

// A running driver on the slave side of a fresh pseudo-terminal.
struct Link {
  vyn::support::PseudoTerminal terminal;
  ArrivalRecorder* recorder = new ArrivalRecorder;  // owned by the library queue
  bool ok = false;

  Link() {
    if (!terminal.Open()) return;
    recorder->Initialize(true);
    GetVYNMessageQueue().Initialize(false);
    GetVYNMessageQueue().Register(recorder);
    GetVYNSerialPort().SetSerialPortSettings(terminal.slave_path(), 7);
    ok = GetVYNSerialPort().InitializeReceivingThread() == 0;
  }
  ~Link() {
    GetVYNSerialPort().TerminateReceivingThread();
    recorder->Terminate();
    GetVYNMessageQueue().Terminate();
  }
  void Drain() {
    unsigned char sink[4096];
    while (read(terminal.master_descriptor(), sink, sizeof sink) > 0) {
    }
  }
};

// A complete CCPU status acknowledgement, checksums included.
std::vector<unsigned char> ReplyFrame() {
  std::vector<unsigned char> frame = {0x42, 0x02, 0x40, 0x02, 0x00, 0x01, 0x00, 0x00, 0x00, 0x00};
  frame[6] = static_cast<unsigned char>(frame[1] + frame[2] + frame[3] + frame[4] + frame[5]);
  return frame;
}

void BM_SendCommandToFirstByteAtPeer(benchmark::State& state) {
  Link link;
  if (!link.ok) {
    state.SkipWithError("link");
    return;
  }
  std::vector<double> samples;
  for (auto _ : state) {
    unsigned char frame[16] = {};
    const uint16_t length = GetVYNCommandSet().PrepareReqGetDeviceInfo(frame);
    const auto start = Clock::now();
    GetVYNSerialPort().SendCommand(frame, length);
    pollfd peer{link.terminal.master_descriptor(), POLLIN, 0};
    poll(&peer, 1, 1000);
    const auto arrived = Clock::now();
    samples.push_back(Micros(arrived - start));
    state.SetIterationTime(std::chrono::duration<double>(arrived - start).count());
    GetVYNSerialPort().WaitWhileBusy(1000);
    link.Drain();
  }
  Percentiles(state, samples);
}
BENCHMARK(BM_SendCommandToFirstByteAtPeer)->UseManualTime()->Iterations(2000);

void BM_ReplyLastByteToReceiver(benchmark::State& state) {
  Link link;
  if (!link.ok) {
    state.SkipWithError("link");
    return;
  }
  const std::vector<unsigned char> reply = ReplyFrame();
  std::vector<double> samples;
  for (auto _ : state) {
    const uint64_t before = link.recorder->received;
    const auto written_ns = Clock::now().time_since_epoch().count();
    if (write(link.terminal.master_descriptor(), reply.data(), reply.size()) !=
        static_cast<ssize_t>(reply.size())) {
      state.SkipWithError("write");
      break;
    }
    while (link.recorder->received == before) std::this_thread::yield();
    const double micros = static_cast<double>(link.recorder->last_arrival_ns - written_ns) / 1000.0;
    samples.push_back(micros);
    state.SetIterationTime(micros / 1e6);
  }
  Percentiles(state, samples);
}
BENCHMARK(BM_ReplyLastByteToReceiver)->UseManualTime()->Iterations(2000);

// Processor time of the receiving thread, from the kernel's accounting.
double ThreadCpuSeconds(const std::string& name) {
  DIR* tasks = opendir("/proc/self/task");
  double seconds = -1.0;
  while (const dirent* entry = tasks != nullptr ? readdir(tasks) : nullptr) {
    const std::string base = std::string("/proc/self/task/") + entry->d_name;
    std::ifstream comm(base + "/comm");
    std::string comm_name;
    std::getline(comm, comm_name);
    if (comm_name != name) continue;
    std::ifstream stat(base + "/stat");
    std::string text((std::istreambuf_iterator<char>(stat)), std::istreambuf_iterator<char>());
    std::istringstream fields(text.substr(text.rfind(')') + 2));
    std::string field;
    unsigned long long utime = 0;
    unsigned long long stime = 0;
    for (int i = 3; i <= 15 && fields >> field; ++i) {
      if (i == 14) utime = std::stoull(field);
      if (i == 15) stime = std::stoull(field);
    }
    seconds = static_cast<double>(utime + stime) / static_cast<double>(sysconf(_SC_CLK_TCK));
  }
  if (tasks != nullptr) closedir(tasks);
  return seconds;
}

void BM_IdleReceivingThreadCpu(benchmark::State& state) {
  Link link;
  if (!link.ok) {
    state.SkipWithError("link");
    return;
  }
  // The thread names itself as it starts; wait until it can be found.
  for (int i = 0; i < 1000 && ThreadCpuSeconds("VYN Serial Port") < 0; ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  for (auto _ : state) {
    const double before = ThreadCpuSeconds("VYN Serial Port");
    std::this_thread::sleep_for(std::chrono::seconds(10));
    const double after = ThreadCpuSeconds("VYN Serial Port");
    state.counters["cpu_percent_of_core"] = (after - before) / 10.0 * 100.0;
  }
}
BENCHMARK(BM_IdleReceivingThreadCpu)->Iterations(1)->Unit(benchmark::kSecond);

// Four application threads send requests as fast as the slot takes them;
// the peer answers every request with one reply, as a device would, so that
// frames flow both ways at the rate the link sustains.
void BM_FramesBothWaysFourSenders(benchmark::State& state) {
  Link link;
  if (!link.ok) {
    state.SkipWithError("link");
    return;
  }
  const std::vector<unsigned char> reply = ReplyFrame();
  std::atomic<bool> stop{false};
  std::thread peer([&] {
    const int fd = link.terminal.master_descriptor();
    unsigned char chunk[4096];
    size_t pending = 0;  // request bytes not yet answered (7 per request)
    std::vector<unsigned char> answers;
    while (!stop) {
      pollfd p{fd, POLLIN, 0};
      if (poll(&p, 1, 10) <= 0 || !(p.revents & POLLIN)) continue;
      const ssize_t got = read(fd, chunk, sizeof chunk);
      if (got <= 0) continue;
      pending += static_cast<size_t>(got);
      answers.clear();
      for (; pending >= 7; pending -= 7) answers.insert(answers.end(), reply.begin(), reply.end());
      if (!answers.empty()) {
        const ssize_t put = write(fd, answers.data(), answers.size());
        (void)put;
      }
    }
  });
  constexpr int kSenders = 4;
  const auto duration = std::chrono::seconds(3);
  for (auto _ : state) {
    std::atomic<uint64_t> sent{0};
    std::atomic<uint64_t> busy{0};
    const uint64_t received_before = link.recorder->received;
    const auto start = Clock::now();
    std::vector<std::thread> senders;
    senders.reserve(kSenders);
    for (int i = 0; i < kSenders; ++i) {
      senders.emplace_back([&] {
        while (Clock::now() - start < duration) {
          unsigned char frame[16] = {};
          const uint16_t length = GetVYNCommandSet().PrepareReqGetDeviceInfo(frame);
          if (GetVYNSerialPort().SendCommand(frame, length) == 0) {
            ++sent;
          } else {
            ++busy;
          }
        }
      });
    }
    for (std::thread& sender : senders) sender.join();
    GetVYNSerialPort().WaitWhileBusy(1000);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    state.SetIterationTime(seconds);
    state.counters["sent_frames_per_s"] = static_cast<double>(sent) / seconds;
    state.counters["received_frames_per_s"] =
        static_cast<double>(link.recorder->received - received_before) / seconds;
    state.counters["busy_answers"] = static_cast<double>(busy);
  }
  stop = true;
  peer.join();
}
BENCHMARK(BM_FramesBothWaysFourSenders)->UseManualTime()->Iterations(1)->Unit(benchmark::kSecond);

}  // namespace

BENCHMARK_MAIN();
