#include "vyn/platform/boot_loader_port.h"

#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <optional>

#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/posix/exclusive_terminal.h"
#include "vyn/platform/wake_up_event.h"

namespace vyn::platform {
namespace {

using Clock = std::chrono::steady_clock;

// How long `size` bytes take on a slow line, with room for a busy machine:
// 10 ms a byte (1200 baud) and two seconds more.
int64_t WriteTimeLimitMs(size_t size) { return 2000 + 10 * static_cast<int64_t>(size); }

}  // namespace

BootLoaderPort::BootLoaderPort() : terminal_(std::make_unique<ExclusiveTerminal>()) {}

BootLoaderPort::~BootLoaderPort() = default;

bool BootLoaderPort::IsOpen() const { return terminal_->IsOpen(); }

int BootLoaderPort::descriptor() const { return terminal_->descriptor(); }

bool BootLoaderPort::Open(const std::string& path, int* error) {
  Close();
  {
    MutexLock lock(&cancel_lock_);
    if (!cancel_) cancel_ = std::make_unique<WakeUpEvent>();
  }
  read_timeout_ms_ = -1;
  write_failed_ = false;
  return terminal_->Open(path, error);
}

bool BootLoaderPort::Configure(uint32_t baud, int* error) {
  if (!terminal_->SetRawLine(baud, Parity::kEven, error)) return false;
  Flush();
  return true;
}

void BootLoaderPort::SetReadTimeout(int64_t timeout_ms) { read_timeout_ms_ = timeout_ms; }

int BootLoaderPort::ReadByte() {
  if (!IsOpen() || IsCancelled()) return -1;
  if (write_failed_) {
    write_failed_ = false;
    return -1;
  }
  std::optional<Clock::time_point> deadline;
  if (read_timeout_ms_ >= 0) deadline = Clock::now() + std::chrono::milliseconds(read_timeout_ms_);
  for (;;) {
    uint8_t byte = 0;
    const IoResult got = ReadDescriptor(descriptor(), &byte, 1);
    if (got.status == IoStatus::kDone) return byte;
    // End of input (VMIN 1, so no time-out) or an error: the line has gone.
    if (got.status != IoStatus::kWouldBlock) return -1;
    const DescriptorReadiness ready =
        WaitForDescriptorUntil(descriptor(), true, false, cancel_.get(), deadline);
    if (ready.woken || IsCancelled()) return -1;
    if (ready.readable) continue;
    if (!ready.hung_up) return -1;  // the time ran out
    // A hang-up may still leave bytes to read: the next read tells.
    return ReadDescriptor(descriptor(), &byte, 1).status == IoStatus::kDone ? byte : -1;
  }
}

void BootLoaderPort::Write(const uint8_t* data, size_t size) {
  if (!IsOpen() || IsCancelled()) {
    write_failed_ = true;
    return;
  }
  const Clock::time_point deadline =
      Clock::now() + std::chrono::milliseconds(WriteTimeLimitMs(size));
  size_t done = 0;
  while (done < size) {
    const IoResult put = WriteDescriptor(descriptor(), data + done, size - done);
    if (put.status == IoStatus::kDone) {
      done += put.count;
      continue;
    }
    if (put.status != IoStatus::kWouldBlock || Clock::now() >= deadline) break;
    const DescriptorReadiness ready =
        WaitForDescriptorUntil(descriptor(), false, true, cancel_.get(), deadline);
    if (!ready.writable || ready.woken) break;
  }
  if (done < size) write_failed_ = true;
}

void BootLoaderPort::Flush() {
  if (IsOpen()) tcflush(descriptor(), TCIOFLUSH);
}

bool BootLoaderPort::Pause(int milliseconds) {
  if (IsCancelled()) return false;
  // Without a cancel event (never opened) this only sleeps.
  const DescriptorReadiness ready = WaitForDescriptorUntil(
      -1, false, false, cancel_.get(), Clock::now() + std::chrono::milliseconds(milliseconds));
  return !ready.woken && !IsCancelled();
}

void BootLoaderPort::Close() {
  terminal_->Close();
  write_failed_ = false;
}

void BootLoaderPort::Cancel() {
  MutexLock lock(&cancel_lock_);
  cancelled_.store(true, std::memory_order_release);
  if (cancel_) cancel_->Signal();
}

void BootLoaderPort::ResetCancel() {
  MutexLock lock(&cancel_lock_);
  cancelled_.store(false, std::memory_order_release);
  if (cancel_) cancel_->Clear();
}

}  // namespace vyn::platform
