// Throughput of the receive assembler over a recorded-like byte stream, and
// the rate at which the traffic monitor's lines are rendered.
#include <benchmark/benchmark.h>

#include <array>
#include <cstring>
#include <random>
#include <vector>

#include "vyn/device/command_dump.h"
#include "vyn/device/command_set.h"
#include "vyn/serial/internal/frame_assembler.h"

namespace {

using Bytes = std::vector<unsigned char>;

// Frames are framed by the library's own sender, as the device's would be.
Bytes Ccpu(CVYNCommandSet& sender, uint16_t id, const Bytes& payload) {
  Bytes frame(SERIAL_FRAME_BUFFER_SIZE, 0);
  frame[0] = CCPU_START_DELIMITER;
  frame[1] = static_cast<unsigned char>(id);
  frame[2] = static_cast<unsigned char>(id >> 8);
  frame[3] = static_cast<unsigned char>(payload.size());
  frame[4] = static_cast<unsigned char>(payload.size() >> 8);
  std::copy(payload.begin(), payload.end(), frame.begin() + 7);
  sender.CalculateChecksums(frame.data());
  frame.resize(payload.empty() ? 7 : payload.size() + 8);
  return frame;
}

Bytes Mcpu(CVYNCommandSet& sender, unsigned char id, const Bytes& payload) {
  Bytes frame(SERIAL_FRAME_BUFFER_SIZE, 0);
  frame[0] = MCPU_START_DELIMITER;
  frame[1] = id;
  frame[2] = static_cast<unsigned char>(payload.size());
  std::copy(payload.begin(), payload.end(), frame.begin() + 4);
  sender.CalculateChecksums(frame.data());
  frame.resize(payload.size() + 5);
  return frame;
}

Bytes Text(const char* text) { return Bytes(text, text + std::strlen(text) + 1); }

Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}

// The typical CCPU traffic of a running device: mostly status notifications
// (three axes and the loop rate, 14 bytes of payload), traces, now and then
// debug texts, acknowledgements of status and control requests, and the
// occasional information reply. About 1 MB.
const Bytes& CcpuStream() {
  static const Bytes stream = [] {
    CVYNCommandSet sender;
    std::mt19937 random(1);
    const Bytes status = {5,  0x00, 0x10, 6,  0x34, 0x02, 7, 0xF0, 0xFF,
                          27, 0xE8, 0x03, 26, 0,    0,    0, 0};
    Bytes trace(64);
    for (unsigned char& b : trace) b = static_cast<unsigned char>(random());
    const std::vector<Bytes> mix = {
        Ccpu(sender, CCPU_CMD_ID_NOT_STATUS, status),
        Ccpu(sender, CCPU_CMD_ID_NOT_STATUS, status),
        Ccpu(sender, CCPU_CMD_ID_NOT_STATUS, status),
        Ccpu(sender, CCPU_CMD_ID_NOT_TRACE, trace),
        Ccpu(sender, CCPU_CMD_ID_NOT_DEBUG,
             Join({{0x01, 0x02, 0x03}, Text("axis 2 limit reached, slowing down")})),
        Ccpu(sender, CCPU_CMD_ID_ACK_GET_STATUS, {0, 0, 0}),
        Ccpu(sender, CCPU_CMD_ID_ACK_CONTROL, {0}),
        Ccpu(sender, CCPU_CMD_ID_ACK_GET_DEVICE_INFO,
             Join({{1, 0x02, 0x01},
                   Text("rev C"),
                   Text("SN-000042"),
                   Text("V 02.01.04"),
                   Text("1.7.3"),
                   Text("2.0.11"),
                   Text("1.1.0"),
                   Text("0.9.2")})),
    };
    Bytes all;
    while (all.size() < 1000000) {
      const Bytes& frame = mix[random() % mix.size()];
      all.insert(all.end(), frame.begin(), frame.end());
    }
    return all;
  }();
  return stream;
}

// MCPU traffic: real-time data replies and confirmations.
const Bytes& McpuStream() {
  static const Bytes stream = [] {
    CVYNCommandSet sender;
    const Bytes realtime = Mcpu(sender, MCPU_CMD_ID_REALTIME_DATA_3, Bytes(63, 0x5A));
    const Bytes confirm = Mcpu(sender, MCPU_CMD_ID_CONFIRM, {MCPU_CMD_ID_CHANGE_MOTORS, 1});
    Bytes all;
    while (all.size() < 1000000) {
      for (const Bytes* frame : {&realtime, &realtime, &realtime, &confirm}) {
        all.insert(all.end(), frame->begin(), frame->end());
      }
    }
    return all;
  }();
  return stream;
}

void RunAssembler(benchmark::State& state, uint16_t protocol, const Bytes& stream) {
  const auto read_size = static_cast<size_t>(state.range(0));
  size_t frames = 0;
  CVYNFrameAssembler assembler([&frames](const unsigned char*, uint16_t) { ++frames; });
  assembler.SetProtocol(protocol);
  uint32_t tick = 1;
  for (auto _ : state) {
    for (size_t offset = 0; offset < stream.size(); offset += read_size) {
      assembler.Feed(stream.data() + offset, std::min(read_size, stream.size() - offset), tick++);
      assembler.CheckTimeout(tick);
    }
  }
  benchmark::DoNotOptimize(frames);
  const double bytes = static_cast<double>(state.iterations()) * static_cast<double>(stream.size());
  state.SetBytesProcessed(static_cast<int64_t>(bytes));
  state.counters["MB/s"] = benchmark::Counter(bytes / 1e6, benchmark::Counter::kIsRate);
  state.counters["frames/s"] =
      benchmark::Counter(static_cast<double>(frames), benchmark::Counter::kIsRate);
  if (assembler.GetStatistics().isd + assembler.GetStatistics().ipcs != 0) {
    state.SkipWithError("the stream was not taken as clean frames");
  }
}

void BM_AssemblerCcpuStream(benchmark::State& state) {
  RunAssembler(state, PROTOCOL_CCPU, CcpuStream());
}
BENCHMARK(BM_AssemblerCcpuStream)->Arg(64)->Arg(4096)->Arg(32768);

void BM_AssemblerMcpuStream(benchmark::State& state) {
  RunAssembler(state, PROTOCOL_MCPU, McpuStream());
}
BENCHMARK(BM_AssemblerMcpuStream)->Arg(4096);

// Dump lines of the replies a traffic monitor sees most.
void BM_DumpLines(benchmark::State& state) {
  CVYNCommandSet sender;
  std::vector<std::array<unsigned char, SERIAL_FRAME_BUFFER_SIZE>> records;
  const auto add = [&records](const Bytes& frame) {
    std::array<unsigned char, SERIAL_FRAME_BUFFER_SIZE> record{};
    std::copy(frame.begin(), frame.end(), record.begin());
    records.push_back(record);
  };
  add(Ccpu(sender, CCPU_CMD_ID_NOT_STATUS,
           {5, 0x00, 0x10, 6, 0x34, 0x02, 7, 0xF0, 0xFF, 27, 0xE8, 0x03}));
  add(Ccpu(sender, CCPU_CMD_ID_ACK_GET_STATUS, {0, 0, 4}));
  add(Ccpu(sender, CCPU_CMD_ID_NOT_DEBUG,
           Join({{0x01, 0x02, 0x03}, Text("axis 2 limit reached")})));
  add(Ccpu(sender, CCPU_CMD_ID_ACK_GET_DEVICE_INFO,
           Join({{1, 0x02, 0x01},
                 Text("rev C"),
                 Text("SN-000042"),
                 Text("V 02.01.04"),
                 Text("1.7.3"),
                 Text("2.0.11"),
                 Text("1.1.0"),
                 Text("0.9.2")})));
  Bytes board(18, 0);
  board[7] = 0xFD;  // 30205: V 02.01.04
  board[8] = 0x75;
  add(Mcpu(sender, MCPU_CMD_ID_BOARD_INFO, board));
  CVYNCommandDump dump;
  size_t next = 0;
  size_t characters = 0;
  for (auto _ : state) {
    dump.DumpAcknowledgeOrNotification(records[next].data());
    characters += std::strlen(dump.GetCommandDump());
    next = next + 1 == records.size() ? 0 : next + 1;
  }
  benchmark::DoNotOptimize(characters);
  state.SetItemsProcessed(state.iterations());
  state.counters["lines/s"] =
      benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}
BENCHMARK(BM_DumpLines);

}  // namespace

BENCHMARK_MAIN();
