#include "sim/boot_loader_simulator.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "support/precise_wait.h"
#include "vyn/platform/descriptor_io.h"

namespace vyn::sim {
namespace {

constexpr size_t kReadChunk = 4096;
// A host that sends requests without reading the answers gets no more of
// them taken off the line once this many answer bytes wait: its writes
// block as on a real line, instead of the simulator's memory growing.
constexpr size_t kMaxWaitingAnswers = size_t{64} * 1024;

}  // namespace

BootLoaderSimulator::BootLoaderSimulator(BootLoaderSimulatorOptions options)
    : options_(std::move(options)),
      port_({options_.link_directory, options_.link_name, true}, [this] { LineChanged(); }),
      chip_(options_),
      to_chip_(options_.baud_rate),
      to_host_(options_.baud_rate) {}

BootLoaderSimulator::~BootLoaderSimulator() { Stop(); }

bool BootLoaderSimulator::Start() {
  if (options_.flash_size == 0 || options_.flash_size > kMaxFlashSize) return false;
  return port_.Start([this] { Run(); });
}

std::vector<uint8_t> BootLoaderSimulator::FlashContents() const {
  MutexLock lock(&port_.mutex());
  return chip_.flash().bytes();
}

BootLoaderSimulatorCounters BootLoaderSimulator::counters() const {
  MutexLock lock(&port_.mutex());
  return chip_.counters();
}

bool BootLoaderSimulator::IsConnected() const {
  MutexLock lock(&port_.mutex());
  return chip_.connected();
}

void BootLoaderSimulator::Reset() {
  MutexLock lock(&port_.mutex());
  chip_.Reset();
  DropAnswers();
}

void BootLoaderSimulator::SetBaudRate(uint32_t baud_rate) {
  MutexLock lock(&port_.mutex());
  to_chip_.SetBaudRate(baud_rate);
  to_host_.SetBaudRate(baud_rate);
}

void BootLoaderSimulator::InjectNack(const NackFault& fault) {
  MutexLock lock(&port_.mutex());
  chip_.InjectNack(fault);
}

void BootLoaderSimulator::ClearNack() {
  MutexLock lock(&port_.mutex());
  chip_.ClearNack();
}

void BootLoaderSimulator::LoseAck(uint32_t skip) {
  MutexLock lock(&port_.mutex());
  chip_.LoseAck(skip);
}

void BootLoaderSimulator::ClearLostAck() {
  MutexLock lock(&port_.mutex());
  chip_.ClearLostAck();
}

void BootLoaderSimulator::SetSilent(bool silent) {
  MutexLock lock(&port_.mutex());
  chip_.set_silent(silent);
}

void BootLoaderSimulator::SetChipId(uint16_t chip_id) {
  MutexLock lock(&port_.mutex());
  chip_.set_chip_id(chip_id);
}

uint16_t BootLoaderSimulator::chip_id() const {
  MutexLock lock(&port_.mutex());
  return chip_.chip_id();
}

void BootLoaderSimulator::SetVersion(uint8_t version) {
  MutexLock lock(&port_.mutex());
  chip_.set_version(version);
}

uint8_t BootLoaderSimulator::version() const {
  MutexLock lock(&port_.mutex());
  return chip_.version();
}

void BootLoaderSimulator::SetWriteProtected(bool on) {
  MutexLock lock(&port_.mutex());
  chip_.set_write_protected(on);
}

bool BootLoaderSimulator::IsWriteProtected() const {
  MutexLock lock(&port_.mutex());
  return chip_.write_protected();
}

void BootLoaderSimulator::SetReadProtected(bool on) {
  MutexLock lock(&port_.mutex());
  chip_.set_read_protected(on);
}

bool BootLoaderSimulator::IsReadProtected() const {
  MutexLock lock(&port_.mutex());
  return chip_.read_protected();
}

void BootLoaderSimulator::ClearFaults() {
  MutexLock lock(&port_.mutex());
  chip_.ClearNack();
  chip_.ClearLostAck();
  chip_.set_silent(false);
  chip_.set_chip_id(options_.chip_id);
  chip_.set_version(options_.version);
}

// The port calls this with its lock held, which the analysis cannot see
// through the callback.
void BootLoaderSimulator::LineChanged() VYN_NO_THREAD_SAFETY_ANALYSIS {
  chip_.PowerOn();
  DropAnswers();
}

void BootLoaderSimulator::DropAnswers() {
  chip_.counters().discarded_bytes += outbox_.size();
  outbox_.clear();
  write_blocked_ = false;
  to_chip_.Reset();
  to_host_.Reset();
}

void BootLoaderSimulator::Run() {
  support::UseFineTimerSlack();
  MutexLock lock(&port_.mutex());
  while (port_.NextRound()) {
    bool want_write = false;
    std::optional<Clock::time_point> deadline;
    if (port_.plugged() && !outbox_.empty()) {
      if (write_blocked_) {
        want_write = true;
      } else {
        deadline = outbox_.front().due;
      }
    }
    const bool want_read = outbox_.size() < kMaxWaitingAnswers;
    const platform::DescriptorReadiness readiness = port_.Wait(want_read, want_write, deadline);
    if (!port_.plugged()) continue;
    if (readiness.writable) write_blocked_ = false;
    if ((readiness.readable && outbox_.size() < kMaxWaitingAnswers) || readiness.hung_up) {
      ReadFromLine();
    }
    if (port_.plugged()) WriteDueAnswers();
  }
}

void BootLoaderSimulator::ReadFromLine() {
  uint8_t buffer[kReadChunk];
  std::vector<ChipByte> answer;
  while (outbox_.size() < kMaxWaitingAnswers) {
    const platform::IoResult got =
        platform::ReadDescriptor(port_.master_descriptor(), buffer, sizeof buffer);
    if (got.status == platform::IoStatus::kHungUp || got.status == platform::IoStatus::kFailed) {
      // With the slave held open this means the terminal itself broke;
      // treat it as a pulled cable rather than poll a dead descriptor.
      port_.PullCable();
      return;
    }
    if (got.status != platform::IoStatus::kDone) return;
    const Clock::time_point now = Clock::now();
    BootLoaderSimulatorCounters& counters = chip_.counters();
    counters.bytes_received += got.count;
    for (size_t i = 0; i < got.count; ++i) {
      // The chip sees the byte once the line has carried it, and starts its
      // answer from that moment.
      Clock::time_point ready = to_chip_.Transfer(now);
      answer.clear();
      chip_.Receive(buffer[i], &answer);
      for (const ChipByte& byte : answer) {
        ready += byte.pause;
        outbox_.push_back(Outgoing{byte.value, to_host_.Transfer(ready)});
      }
    }
  }
}

void BootLoaderSimulator::WriteDueAnswers() {
  uint8_t buffer[kReadChunk];
  while (!outbox_.empty() && !write_blocked_) {
    const Clock::time_point now = Clock::now();
    size_t count = 0;
    while (count < outbox_.size() && count < sizeof buffer && outbox_[count].due <= now) {
      buffer[count] = outbox_[count].value;
      ++count;
    }
    if (count == 0) return;
    const platform::IoResult put =
        platform::WriteDescriptor(port_.master_descriptor(), buffer, count);
    if (put.status == platform::IoStatus::kWouldBlock) {
      write_blocked_ = true;
      return;
    }
    if (put.status != platform::IoStatus::kDone) {
      port_.PullCable();
      return;
    }
    chip_.counters().bytes_sent += put.count;
    outbox_.erase(outbox_.begin(), outbox_.begin() + static_cast<ptrdiff_t>(put.count));
  }
}

}  // namespace vyn::sim
