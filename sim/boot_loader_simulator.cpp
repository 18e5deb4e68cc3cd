#include "sim/boot_loader_simulator.h"

#include <algorithm>
#include <optional>
#include <utility>

#include "support/file_system.h"
#include "support/precise_wait.h"
#include "vyn/platform/descriptor_io.h"

namespace vyn::sim {
namespace {

constexpr std::chrono::milliseconds kPlugChangeLimit{5000};
constexpr size_t kReadChunk = 4096;
// A host that sends requests without reading the answers gets no more of
// them taken off the line once this many answer bytes wait: its writes
// block as on a real line, instead of the simulator's memory growing.
constexpr size_t kMaxWaitingAnswers = size_t{64} * 1024;

}  // namespace

BootLoaderSimulator::BootLoaderSimulator(BootLoaderSimulatorOptions options)
    : options_(std::move(options)),
      chip_(options_),
      to_chip_(options_.baud_rate),
      to_host_(options_.baud_rate) {}

BootLoaderSimulator::~BootLoaderSimulator() { Stop(); }

bool BootLoaderSimulator::Start() {
  if (thread_.joinable() || !wake_.IsValid()) return false;
  if (options_.flash_size == 0 || options_.flash_size > kMaxFlashSize) return false;
  std::string directory = options_.link_directory;
  if (directory.empty()) {
    directory = support::CreateUniqueDirectory("/tmp/vyn-sim-");
    if (directory.empty()) return false;
    own_directory_ = directory;
  }
  port_path_ = directory + "/" + options_.link_name;
  {
    MutexLock lock(&mutex_);
    if (PlugInNewTerminal()) {
      running_ = true;
      stop_requested_ = false;
      plug_request_ = PlugRequest::kNone;
      thread_ = std::thread(&BootLoaderSimulator::Run, this);
      return true;
    }
  }
  if (!own_directory_.empty()) support::RemoveEmptyDirectory(own_directory_);
  own_directory_.clear();
  return false;
}

void BootLoaderSimulator::Stop() {
  {
    MutexLock lock(&mutex_);
    stop_requested_ = true;
  }
  wake_.Signal();
  if (thread_.joinable()) thread_.join();
  MutexLock lock(&mutex_);
  running_ = false;
  if (plugged_) support::RemoveSymbolicLinkTo(port_path_, terminal_.slave_path());
  terminal_.Close();
  plugged_ = false;
  DropAnswers();
  if (!own_directory_.empty()) support::RemoveEmptyDirectory(own_directory_);
  own_directory_.clear();
  plug_changed_.notify_all();
}

bool BootLoaderSimulator::IsRunning() const {
  MutexLock lock(&mutex_);
  return running_;
}

std::string BootLoaderSimulator::terminal_path() const {
  MutexLock lock(&mutex_);
  return terminal_.slave_path();
}

std::vector<uint8_t> BootLoaderSimulator::FlashContents() const {
  MutexLock lock(&mutex_);
  return chip_.flash().bytes();
}

BootLoaderSimulatorCounters BootLoaderSimulator::counters() const {
  MutexLock lock(&mutex_);
  return chip_.counters();
}

bool BootLoaderSimulator::IsConnected() const {
  MutexLock lock(&mutex_);
  return chip_.connected();
}

void BootLoaderSimulator::Reset() {
  MutexLock lock(&mutex_);
  chip_.Reset();
  DropAnswers();
}

void BootLoaderSimulator::SetBaudRate(uint32_t baud_rate) {
  MutexLock lock(&mutex_);
  to_chip_.SetBaudRate(baud_rate);
  to_host_.SetBaudRate(baud_rate);
}

void BootLoaderSimulator::InjectNack(const NackFault& fault) {
  MutexLock lock(&mutex_);
  chip_.InjectNack(fault);
}

void BootLoaderSimulator::ClearNack() {
  MutexLock lock(&mutex_);
  chip_.ClearNack();
}

void BootLoaderSimulator::LoseAck(uint32_t skip) {
  MutexLock lock(&mutex_);
  chip_.LoseAck(skip);
}

void BootLoaderSimulator::ClearLostAck() {
  MutexLock lock(&mutex_);
  chip_.ClearLostAck();
}

void BootLoaderSimulator::SetSilent(bool silent) {
  MutexLock lock(&mutex_);
  chip_.set_silent(silent);
}

void BootLoaderSimulator::SetChipId(uint16_t chip_id) {
  MutexLock lock(&mutex_);
  chip_.set_chip_id(chip_id);
}

uint16_t BootLoaderSimulator::chip_id() const {
  MutexLock lock(&mutex_);
  return chip_.chip_id();
}

void BootLoaderSimulator::SetVersion(uint8_t version) {
  MutexLock lock(&mutex_);
  chip_.set_version(version);
}

uint8_t BootLoaderSimulator::version() const {
  MutexLock lock(&mutex_);
  return chip_.version();
}

void BootLoaderSimulator::SetWriteProtected(bool on) {
  MutexLock lock(&mutex_);
  chip_.set_write_protected(on);
}

bool BootLoaderSimulator::IsWriteProtected() const {
  MutexLock lock(&mutex_);
  return chip_.write_protected();
}

void BootLoaderSimulator::SetReadProtected(bool on) {
  MutexLock lock(&mutex_);
  chip_.set_read_protected(on);
}

bool BootLoaderSimulator::IsReadProtected() const {
  MutexLock lock(&mutex_);
  return chip_.read_protected();
}

void BootLoaderSimulator::ClearFaults() {
  MutexLock lock(&mutex_);
  chip_.ClearNack();
  chip_.ClearLostAck();
  chip_.set_silent(false);
  chip_.set_chip_id(options_.chip_id);
  chip_.set_version(options_.version);
}

bool BootLoaderSimulator::Unplug() { return RequestPlugChange(PlugRequest::kUnplug); }

bool BootLoaderSimulator::Replug() { return RequestPlugChange(PlugRequest::kReplug); }

bool BootLoaderSimulator::IsPlugged() const {
  MutexLock lock(&mutex_);
  return plugged_;
}

// The waits go through the standard lock under mutex_, which the lock
// analysis cannot follow.
bool BootLoaderSimulator::RequestPlugChange(PlugRequest request) VYN_NO_THREAD_SAFETY_ANALYSIS {
  std::unique_lock lock(mutex_.native());
  if (!running_ || stop_requested_) return false;
  // One change at a time: a second caller waits for the first to be done.
  while (plug_request_ != PlugRequest::kNone && running_) plug_changed_.wait(lock);
  if (!running_) return false;
  plug_request_ = request;
  wake_.Signal();
  const Clock::time_point limit = Clock::now() + kPlugChangeLimit;
  while (plug_request_ != PlugRequest::kNone && running_) {
    if (plug_changed_.wait_until(lock, limit) == std::cv_status::timeout) return false;
  }
  return running_ && plug_result_;
}

void BootLoaderSimulator::ApplyPlugRequest() {
  if (plug_request_ == PlugRequest::kNone) return;
  if (plug_request_ == PlugRequest::kUnplug) {
    if (plugged_) Unplugged();
    plug_result_ = true;
  } else {
    plug_result_ = PlugInNewTerminal();
  }
  plug_request_ = PlugRequest::kNone;
  plug_changed_.notify_all();
}

bool BootLoaderSimulator::PlugInNewTerminal() {
  support::PseudoTerminal fresh;
  // Holding the slave open keeps the master quiet while no program has the
  // port, so the thread can wait on it without a time limit.
  if (!fresh.Open() || !fresh.HoldSlaveOpen()) return false;
  // The link is made only where nothing is, and re-pointed only while it is
  // still ours: a file or another simulator's link at that path stays.
  const bool linked = plugged_ ? support::RepointSymbolicLink(port_path_, terminal_.slave_path(),
                                                              fresh.slave_path())
                               : support::CreateSymbolicLink(fresh.slave_path(), port_path_);
  if (!linked) return false;
  // Moving the new terminal in closes the old one: its users see a hang-up
  // while the link already leads to the new one.
  terminal_ = std::move(fresh);
  plugged_ = true;
  // A new terminal is a new cable and a chip that has just been powered.
  chip_.PowerOn();
  DropAnswers();
  return true;
}

void BootLoaderSimulator::Unplugged() {
  // The link goes first, so nobody opens a terminal that is about to vanish.
  support::RemoveSymbolicLinkTo(port_path_, terminal_.slave_path());
  terminal_.Close();
  plugged_ = false;
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
  mutex_.Lock();
  while (!stop_requested_) {
    ApplyPlugRequest();
    const int descriptor = plugged_ ? terminal_.master_descriptor() : -1;
    bool want_write = false;
    std::optional<Clock::time_point> deadline;
    if (plugged_ && !outbox_.empty()) {
      if (write_blocked_) {
        want_write = true;
      } else {
        deadline = outbox_.front().due;
      }
    }
    const bool want_read = outbox_.size() < kMaxWaitingAnswers;
    mutex_.Unlock();
    const platform::DescriptorReadiness readiness =
        platform::WaitForDescriptorUntil(descriptor, want_read, want_write, &wake_, deadline);
    mutex_.Lock();
    wake_.Clear();
    if (stop_requested_ || !plugged_) continue;
    if (readiness.writable) write_blocked_ = false;
    if ((readiness.readable && outbox_.size() < kMaxWaitingAnswers) || readiness.hung_up) {
      ReadFromLine();
    }
    if (plugged_) WriteDueAnswers();
  }
  mutex_.Unlock();
}

void BootLoaderSimulator::ReadFromLine() {
  uint8_t buffer[kReadChunk];
  std::vector<ChipByte> answer;
  while (outbox_.size() < kMaxWaitingAnswers) {
    const platform::IoResult got =
        platform::ReadDescriptor(terminal_.master_descriptor(), buffer, sizeof buffer);
    if (got.status == platform::IoStatus::kHungUp || got.status == platform::IoStatus::kFailed) {
      // With the slave held open this means the terminal itself broke;
      // treat it as a pulled cable rather than poll a dead descriptor.
      Unplugged();
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
        platform::WriteDescriptor(terminal_.master_descriptor(), buffer, count);
    if (put.status == platform::IoStatus::kWouldBlock) {
      write_blocked_ = true;
      return;
    }
    if (put.status != platform::IoStatus::kDone) {
      Unplugged();
      return;
    }
    chip_.counters().bytes_sent += put.count;
    outbox_.erase(outbox_.begin(), outbox_.begin() + static_cast<ptrdiff_t>(put.count));
  }
}

}  // namespace vyn::sim
