// Flashing a 128 KiB image into the simulated bootloader paced at 115,200
// baud, by the shortest client the protocol allows and by the library's own
// transmission. Each result carries the line-rate limit of the bytes its
// client put on the line (bytes x 11 bits / baud rate), which no client can
// beat.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

#include "sim/boot_loader_simulator.h"
#include "support/file_system.h"
#include "vyn/core/status.h"
#include "vyn/firmware/file_header.h"
#include "vyn/firmware/stm32_boot_loader.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/serial_device.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr uint32_t kBaud = 115200;
constexpr size_t kImageSize = size_t{128} * 1024;
constexpr uint32_t kFlashBase = 0x08000000;
constexpr uint8_t kAck = 0x79;
constexpr uint8_t kNack = 0x1F;
constexpr int kAnswerLimitMs = 5000;

std::vector<uint8_t> Image() {
  std::vector<uint8_t> image(kImageSize);
  std::mt19937 random(128);
  for (uint8_t& byte : image) byte = static_cast<uint8_t>(random());
  return image;
}

// The shortest client: connect, then one Write Memory per block of 256
// bytes, each part of it waiting for its ACK. Nothing else is sent: no Get,
// no erase (the simulated chip starts erased), no Go.
class ShortestClient {
 public:
  bool Flash(const std::string& path, const std::vector<uint8_t>& image) {
    vyn::platform::SerialOpenStep step;
    int error = 0;
    if (!port_.Open(path, kBaud, &step, &error)) return false;
    const uint8_t connect = 0x7F;
    if (!Send(&connect, 1)) return false;
    const int answer = Answer();
    if (answer != kAck && answer != kNack) return false;
    uint8_t packet[1 + 256 + 1];
    for (size_t offset = 0; offset < image.size(); offset += 256) {
      const size_t n = std::min<size_t>(256, image.size() - offset);
      const uint32_t address = kFlashBase + static_cast<uint32_t>(offset);
      const uint8_t command[2] = {0x31, 0xCE};
      uint8_t where[5] = {static_cast<uint8_t>(address >> 24), static_cast<uint8_t>(address >> 16),
                          static_cast<uint8_t>(address >> 8), static_cast<uint8_t>(address), 0};
      where[4] = where[0] ^ where[1] ^ where[2] ^ where[3];
      packet[0] = static_cast<uint8_t>(n - 1);
      uint8_t sum = packet[0];
      for (size_t i = 0; i < n; ++i) sum ^= packet[1 + i] = image[offset + i];
      packet[1 + n] = sum;
      if (!Send(command, 2) || Answer() != kAck || !Send(where, 5) || Answer() != kAck ||
          !Send(packet, n + 2) || Answer() != kAck) {
        return false;
      }
    }
    port_.Close();
    return true;
  }

 private:
  bool Send(const uint8_t* bytes, size_t count) {
    while (count > 0) {
      const vyn::platform::IoResult put =
          vyn::platform::WriteDescriptor(port_.descriptor(), bytes, count);
      if (put.status == vyn::platform::IoStatus::kDone) {
        bytes += put.count;
        count -= put.count;
      } else if (put.status != vyn::platform::IoStatus::kWouldBlock ||
                 !vyn::platform::WaitForDescriptor(port_.descriptor(), true, nullptr,
                                                   kAnswerLimitMs)
                      .writable) {
        return false;
      }
    }
    return true;
  }
  // The next byte from the chip, or -1.
  int Answer() {
    for (;;) {
      uint8_t byte = 0;
      const vyn::platform::IoResult got =
          vyn::platform::ReadDescriptor(port_.descriptor(), &byte, 1);
      if (got.status == vyn::platform::IoStatus::kDone) return byte;
      if (got.status != vyn::platform::IoStatus::kWouldBlock ||
          !vyn::platform::WaitForDescriptor(port_.descriptor(), false, nullptr, kAnswerLimitMs)
               .readable) {
        return -1;
      }
    }
  }

  vyn::platform::SerialDevice port_;
};

// One flash of the image into a fresh paced chip by `flash`; reports the time,
// the bytes on the line both ways and their line-rate limit.
template <typename Flash>
void MeasureFlash(benchmark::State& state, Flash flash) {
  const std::vector<uint8_t> image = Image();
  for (auto _ : state) {
    vyn::sim::BootLoaderSimulatorOptions options;
    options.baud_rate = kBaud;
    vyn::sim::BootLoaderSimulator chip(options);
    if (!chip.Start()) {
      state.SkipWithError("the simulated chip did not start");
      return;
    }
    const Clock::time_point start = Clock::now();
    const bool done = flash(chip.port_path(), image);
    const double seconds = std::chrono::duration<double>(Clock::now() - start).count();
    const std::vector<uint8_t> flash_contents = chip.FlashContents();
    if (!done || !std::equal(image.begin(), image.end(), flash_contents.begin())) {
      state.SkipWithError("the image did not arrive");
      return;
    }
    state.SetIterationTime(seconds);
    const vyn::sim::BootLoaderSimulatorCounters counters = chip.counters();
    const double wire_bytes = static_cast<double>(counters.bytes_received + counters.bytes_sent);
    state.counters["wire_bytes"] = wire_bytes;
    state.counters["line_limit_s"] = wire_bytes * 11 / kBaud;
    state.counters["vs_line_limit"] = seconds / (wire_bytes * 11 / kBaud);
  }
  state.SetBytesProcessed(static_cast<int64_t>(state.iterations() * image.size()));
}

void BM_FlashShortestClient(benchmark::State& state) {
  MeasureFlash(state, [](const std::string& path, const std::vector<uint8_t>& image) {
    return ShortestClient().Flash(path, image);
  });
}
BENCHMARK(BM_FlashShortestClient)
    ->Unit(benchmark::kSecond)
    ->Iterations(1)
    ->Repetitions(2)
    ->UseManualTime();

// The library's own transmission: the firmware file is unpacked to
// "temp.bin", then Get, Get ID, Extended Erase, the blocks and Go.
void BM_FlashLibrary(benchmark::State& state) {
  const std::string directory = vyn::support::CreateUniqueDirectory("/tmp/vyn-bench-");
  const std::vector<uint8_t> image = Image();
  const std::string plain = directory + "/image.bin";
  const std::string firmware = directory + "/image.vfw";
  FILE* out = std::fopen(plain.c_str(), "wb");
  const bool written =
      out != nullptr && std::fwrite(image.data(), 1, image.size(), out) == image.size();
  if (out != nullptr) std::fclose(out);
  _FILE_HEADER header{};
  header.dwFileType = VYN_FILE_TYPE_MCPU;
  const std::filesystem::path previous = std::filesystem::current_path();
  if (directory.empty() || !written ||
      GetVYNFileHeader().CreateNewFile(plain, firmware, &header) != VYN_STATUS_SUCCESS) {
    state.SkipWithError("no firmware file");
  } else {
    // "temp.bin" goes to the current directory.
    std::filesystem::current_path(directory);
    MeasureFlash(state, [&firmware](const std::string& path, const std::vector<uint8_t>&) {
      return GetVYNSTM32BootLoader().TransmitFirmware(path, firmware) == VYN_STATUS_SUCCESS;
    });
    std::filesystem::current_path(previous);
  }
  for (const char* name : {"/image.bin", "/image.vfw", "/temp.bin"}) {
    vyn::support::RemoveFile(directory + name);
  }
  vyn::support::RemoveEmptyDirectory(directory);
}
BENCHMARK(BM_FlashLibrary)
    ->Unit(benchmark::kSecond)
    ->Iterations(1)
    ->Repetitions(2)
    ->UseManualTime();

}  // namespace

BENCHMARK_MAIN();
