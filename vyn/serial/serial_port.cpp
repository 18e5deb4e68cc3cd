#include "vyn/serial/serial_port.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "vyn/core/internal/log_output.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/core/synchronize.h"
#include "vyn/device/command_set.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/event.h"
#include "vyn/platform/serial_device.h"
#include "vyn/platform/system_time.h"
#include "vyn/platform/wake_up_event.h"
#include "vyn/queue/message.h"
#include "vyn/queue/message_queue.h"
#include "vyn/serial/internal/frame_assembler.h"

namespace {

using vyn::platform::GetTickCount;
using vyn::platform::IoStatus;

constexpr uint32_t kBaudRates[] = {1200,  2400,   4800,   9600,   19200, 38400,
                                   57600, 115200, 230400, 460800, 921600};
constexpr int32_t kBaudIdCount = static_cast<int32_t>(sizeof kBaudRates / sizeof kBaudRates[0]);
constexpr uint32_t kPauseAfterFailedOpenMs = 10;
constexpr int kQuietLineMs = 2;   // a read is complete after this much quiet
constexpr int kIdleWaitMs = 500;  // heartbeat period of an idle line
constexpr uint32_t kStatisticsPeriodMs = 1000;
constexpr uint32_t kSlotWaitMs = 100;  // SendCommand's patience with a busy slot
constexpr uint32_t kNoMemoryExitCode = 0xC0000017;

int32_t SerialPortThreadFunction(void* /*parameter*/) {
  return GetVYNSerialPort().RunSerialPortThread();
}

}  // namespace

struct CVYNSerialPort::Io {
  vyn::platform::SerialDevice device;
  vyn::platform::WakeUpEvent wake;
  vyn::platform::Event slot_free{true, true};
  vyn::platform::Event close_done{true, true};
  CVYNFrameAssembler assembler;
};

CVYNSerialPort::CVYNSerialPort() : io_(std::make_unique<Io>()) {
  io_->assembler.SetSink([this](const unsigned char* frame, uint16_t length) {
    PublishFrame(MSG_SERIAL_FRAME_RECEIVED, frame, length);
  });
}

CVYNSerialPort::~CVYNSerialPort() { TerminateReceivingThread(); }

int32_t CVYNSerialPort::AddOutput(std::string text, _VYNSystemLogExEventType type) {
  std::string reference;
  {
    std::lock_guard lock(settings_mutex_);
    reference = port_name_;
  }
  return vyn::LogAddOutput(text, type, reference, "CVYNSerialPort", "");
}

int32_t CVYNSerialPort::SetSerialPortSettings(std::string port_name, int32_t baud_id) {
  SetCOMPort(std::move(port_name));
  return SetBaudRateAsID(baud_id);
}

int32_t CVYNSerialPort::GetSerialPortSettings(std::string* port_name, int32_t* baud_id) {
  GetCOMPort(port_name);
  GetBaudRateAsID(baud_id);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSerialPort::SetCOMPort(std::string port_name) {
  std::lock_guard lock(settings_mutex_);
  port_name_ = std::move(port_name);
  return VYN_STATUS_SUCCESS;
}

std::string CVYNSerialPort::GetCOMPort(std::string* port_name) {
  std::lock_guard lock(settings_mutex_);
  if (port_name != nullptr) *port_name = port_name_;
  return port_name_;
}

int32_t CVYNSerialPort::SetBaudRateAsID(int32_t baud_id) {
  if (baud_id < 0 || baud_id >= kBaudIdCount) return VYN_STATUS_INVALID_PARAMETER;
  baud_id_ = baud_id;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSerialPort::GetBaudRateAsID(int32_t* baud_id) {
  const int32_t id = baud_id_;
  if (baud_id != nullptr) *baud_id = id;
  return id;
}

int32_t CVYNSerialPort::GetBaudRate() { return static_cast<int32_t>(kBaudRates[baud_id_]); }

int32_t CVYNSerialPort::SetProtocol(unsigned short protocol) {
  return io_->assembler.SetProtocol(protocol);
}

int32_t CVYNSerialPort::InitializeSerialPortStatus() {
  io_->assembler.InitializeStatistics();
  return VYN_STATUS_SUCCESS;
}

void CVYNSerialPort::LogOpenFailure(int step_value, int error) {
  const auto step = static_cast<vyn::platform::SerialOpenStep>(step_value);
  int text = 1;
  switch (step) {
    case vyn::platform::SerialOpenStep::kReadSettings:
      text = 2;
      break;
    case vyn::platform::SerialOpenStep::kWriteSettings:
      text = 3;
      break;
    case vyn::platform::SerialOpenStep::kSetTimeouts:
      text = 4;
      break;
    default:
      break;
  }
  char line[512];
  std::snprintf(line, sizeof line, "%s GetLastError() = %i.",
                GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, text), error);
  AddOutput(line, VYN_EVENT_ERROR);
}

int32_t CVYNSerialPort::OpenDevice(bool report, bool pause_on_failure) {
  CVYNSynchronize pass(&pass_lock_, true);
  const std::string path = vyn::platform::SerialDevicePath(GetCOMPort(nullptr));
  io_->device.Close();
  io_->assembler.InitializeStatistics();
  vyn::platform::SerialOpenStep step = vyn::platform::SerialOpenStep::kNone;
  int error = 0;
  if (!io_->device.Open(path, kBaudRates[baud_id_], &step, &error)) {
    if (report) LogOpenFailure(static_cast<int>(step), error);
    pass.Leave();
    if (pause_on_failure) vyn::platform::SleepMilliseconds(kPauseAfterFailedOpenMs);
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSerialPort::OpenSerialPort(bool report) {
  if (!report && !thread_.IsRunning()) return VYN_STATUS_UNSPECIFIC_ERROR;
  // Let a running pass end, so that the pass lock comes free.
  ++pass_waiters_;
  io_->wake.Signal();
  const int32_t opened = OpenDevice(report, true);
  --pass_waiters_;
  return opened;
}

int32_t CVYNSerialPort::CloseSerialPort(bool /*unused*/) {
  if (thread_.IsRunning()) {
    // The receiving thread owns the device while it runs: it closes it at its
    // next pass, as if the port had been closed under a pending read.
    io_->close_done.Reset();
    close_requested_ = true;
    io_->wake.Signal();
    io_->close_done.Wait(2000);
    return VYN_STATUS_SUCCESS;
  }
  ++pass_waiters_;
  CVYNSynchronize pass(&pass_lock_, true);
  io_->device.Close();
  --pass_waiters_;
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSerialPort::InitializeReceivingThread() {
  if (thread_.IsRunning()) return VYN_STATUS_BUSY;
  const int32_t opened = OpenSerialPort(true);
  if (opened < 0) return opened;
  stopping_ = false;
  thread_.SetThreadName("VYN Serial Port");
  return thread_.CreateThread(&SerialPortThreadFunction, nullptr, nullptr, 0, 0, false);
}

int32_t CVYNSerialPort::TerminateReceivingThread() {
  stopping_ = true;
  io_->wake.Signal();
  thread_.DestroyThread(true);
  stopping_ = false;
  CVYNSynchronize pass(&pass_lock_, true);
  io_->device.Close();
  return VYN_STATUS_SUCCESS;
}

bool CVYNSerialPort::IsRunning() { return thread_.IsRunning(); }

int32_t CVYNSerialPort::SendCommand(unsigned char* frame, uint32_t length) {
  if (!thread_.IsRunning()) return VYN_STATUS_BUSY;
  if (frame == nullptr || length == 0 || length > kSendSlotSize) {
    return VYN_STATUS_INVALID_PARAMETER;
  }
  if (send_length_ != 0 && WaitWhileBusy(kSlotWaitMs) != VYN_STATUS_SUCCESS) {
    return VYN_STATUS_BUSY;
  }
  GetVYNCommandSet().CalculateChecksums(frame);
  std::memcpy(send_slot_, frame, length);
  io_->slot_free.Reset();
  // Publishing the length makes the frame visible; the bytes are in place.
  send_length_.store(length, std::memory_order_release);
  io_->wake.Signal();
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSerialPort::WaitWhileBusy(uint32_t milliseconds) {
  const uint32_t start = GetTickCount();
  for (;;) {
    const uint32_t elapsed = GetTickCount() - start;
    if (elapsed >= milliseconds) return VYN_STATUS_TIMEOUT;
    if (send_length_.load(std::memory_order_acquire) == 0) return VYN_STATUS_SUCCESS;
    io_->slot_free.Wait(milliseconds - elapsed);
  }
}

int32_t CVYNSerialPort::SetDumpMode(uint32_t mode) {
  dump_mode_ = mode;
  return VYN_STATUS_SUCCESS;
}

uint32_t CVYNSerialPort::GetDumpMode() { return dump_mode_; }

std::string CVYNSerialPort::GetSerialPortStatus() { return io_->assembler.FormatStatistics(); }

_SERIAL_LINK_STATISTICS CVYNSerialPort::GetSerialPortStatistics() {
  return io_->assembler.GetStatistics();
}

void CVYNSerialPort::PublishFrame(uint32_t message_type, const unsigned char* frame,
                                  uint32_t length) {
  _SERIAL_FRAME_RECORD record{};
  record.port = this;
  record.time = vyn::platform::GetSystemTime();
  std::memcpy(record.frame, frame, std::min<size_t>(length, sizeof record.frame));
  CVYNMessage message(message_type, reinterpret_cast<unsigned char*>(&record),
                      static_cast<int32_t>(sizeof record));
  GetVYNMessageQueue().Notify(message);
}

void CVYNSerialPort::DropWaitingFrame() {
  send_length_.store(0, std::memory_order_release);
  io_->slot_free.Set();
}

void CVYNSerialPort::WriteWaitingFrame() {
  const uint32_t length = send_length_.load(std::memory_order_acquire);
  if (length == 0) return;
  bool written = io_->device.IsOpen();
  size_t done = 0;
  while (written && done < length) {
    const auto result =
        vyn::platform::WriteDescriptor(io_->device.descriptor(), send_slot_ + done, length - done);
    if (result.status == IoStatus::kDone) {
      done += result.count;
    } else if (result.status == IoStatus::kWouldBlock && !stopping_) {
      // The line is slower than us: wait until it takes more, or a stop.
      vyn::platform::WaitForDescriptor(io_->device.descriptor(), true, &io_->wake, 50);
      io_->wake.Clear();
    } else {
      written = false;
    }
  }
  if (written) io_->assembler.CountSentFrame(length);
  // Reported whether or not the write succeeded, and the slot is freed.
  PublishFrame(MSG_SERIAL_FRAME_SENT, send_slot_, length);
  DropWaitingFrame();
}

bool CVYNSerialPort::ReadBurst(unsigned char* buffer) {
  size_t held = 0;
  bool alive = true;
  // A frame waiting to go out ends the read early: on a busy line the
  // writes would otherwise wait for the whole burst.
  while (held < kReadBufferSize && send_length_.load(std::memory_order_relaxed) == 0) {
    const auto result = vyn::platform::ReadDescriptor(io_->device.descriptor(), buffer + held,
                                                      kReadBufferSize - held);
    if (result.status == IoStatus::kDone) {
      held += result.count;
      continue;
    }
    if (result.status != IoStatus::kWouldBlock) {
      alive = result.status != IoStatus::kHungUp;
      break;
    }
    // Quiet for 2 ms ends the read, as the interval time-out would; so does
    // a wake-up (a frame to write, a stop), which the pass then handles.
    const auto ready =
        vyn::platform::WaitForDescriptor(io_->device.descriptor(), false, &io_->wake, kQuietLineMs);
    if (!ready.readable || ready.woken) {
      alive = !ready.hung_up || ready.readable;
      break;
    }
  }
  if (held > 0) io_->assembler.Feed(buffer, held, GetTickCount());
  return alive;
}

int CVYNSerialPort::WaitTimeoutMs(uint32_t now) const {
  // Milliseconds until `period` has passed since `since_tick` (just past it,
  // as the checks ask for "more than"), 0 when it has.
  const auto until = [now](uint32_t since_tick, uint32_t period) {
    const uint32_t since = now - since_tick;
    return since > period ? 0 : static_cast<int>(period - since + 1);
  };
  int timeout = kIdleWaitMs;
  const uint32_t last = io_->assembler.GetTimeOfLastReception();
  if (last != 0) timeout = std::min(timeout, until(last, CVYNFrameAssembler::kReceptionTimeoutMs));
  if (dump_mode_ != 0)
    timeout = std::min(timeout, until(last_statistics_tick_, kStatisticsPeriodMs));
  return timeout;
}

int32_t CVYNSerialPort::RunSerialPortThread() {
  AddOutput(GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, 7), VYN_EVENT_INFORMATION);
  std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kReadBufferSize]);
  if (!buffer) {
    AddOutput(GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, 8), VYN_EVENT_ERROR);
    return static_cast<int32_t>(kNoMemoryExitCode);
  }
  bool closed_under_us = false;
  while (thread_.IsRunning() && !stopping_) {
    thread_.UpdateStatus();
    const uint32_t now = GetTickCount();
    if (dump_mode_ != 0 && now - last_statistics_tick_ > kStatisticsPeriodMs) {
      AddOutput(io_->assembler.FormatStatistics(), VYN_EVENT_DEBUG);
      last_statistics_tick_ = now;
    }
    // Another thread waiting for the pass lock gets it before the next pass.
    if (pass_waiters_ != 0) vyn::platform::SleepMilliseconds(1);
    CVYNSynchronize pass(&pass_lock_, true);
    if (close_requested_.exchange(false)) {
      const bool frame_waiting = send_length_ != 0;
      if (frame_waiting) DropWaitingFrame();
      io_->device.Close();
      io_->close_done.Set();
      if (!frame_waiting) {
        closed_under_us = true;
        break;
      }
      continue;
    }
    if (!io_->device.IsOpen()) {
      // A lost port: reopen it quietly by its name, 10 ms apart.
      if (OpenDevice(false, false) != VYN_STATUS_SUCCESS) {
        pass.Leave();
        thread_.Sleep(kPauseAfterFailedOpenMs);
        continue;
      }
    }
    const auto ready = vyn::platform::WaitForDescriptor(io_->device.descriptor(), false, &io_->wake,
                                                        WaitTimeoutMs(now));
    if (ready.woken) io_->wake.Clear();
    if (send_length_.load(std::memory_order_acquire) != 0 && !stopping_) WriteWaitingFrame();
    bool alive = !ready.hung_up || ready.readable;
    if (ready.readable) alive = ReadBurst(buffer.get());
    if (!alive) io_->device.Close();
    io_->assembler.CheckTimeout(GetTickCount());
  }
  AddOutput(GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, 9), VYN_EVENT_INFORMATION);
  if (closed_under_us) thread_.EndOfThread();
  return 0;
}
