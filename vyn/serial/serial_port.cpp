#include "vyn/serial/serial_port.h"

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>

#include "vyn/base/mutex.h"
#include "vyn/core/internal/log_output.h"
#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/device/command_set.h"
#include "vyn/platform/clock.h"
#include "vyn/platform/descriptor_io.h"
#include "vyn/platform/serial_device.h"
#include "vyn/platform/system_error.h"
#include "vyn/platform/system_time.h"
#include "vyn/platform/wake_up_event.h"
#include "vyn/queue/message.h"
#include "vyn/queue/message_queue.h"
#include "vyn/serial/internal/frame_assembler.h"
#include "vyn/serial/internal/port_requests.h"
#include "vyn/serial/internal/send_slot.h"

namespace {

using vyn::platform::GetTickCount;
using vyn::platform::IoStatus;
using vyn::platform::SerialOpenFailure;
using vyn::platform::SerialOpenStep;
using vyn::serial::LinkState;
using vyn::serial::PortRequest;
using vyn::serial::RequestOutcome;

constexpr uint32_t kBaudRates[] = {1200,  2400,   4800,   9600,   19200, 38400,
                                   57600, 115200, 230400, 460800, 921600};
constexpr int32_t kBaudIdCount = static_cast<int32_t>(sizeof kBaudRates / sizeof kBaudRates[0]);
constexpr int kPauseAfterFailedOpenMs = 10;
constexpr int kIdleWaitMs = 500;  // heartbeat period of an idle line
constexpr uint32_t kStatisticsPeriodMs = 1000;
constexpr uint32_t kSlotWaitMs = 100;       // SendCommand's patience with a busy slot
constexpr uint32_t kRequestLimitMs = 5000;  // for a thread to take an open or close
constexpr uint32_t kNoMemoryExitCode = 0xC0000017;
// The receiving thread's answer to a close that it follows by ending itself.
constexpr int32_t kClosedAndEnding = 1;

constexpr const char* kDroppedLineDown =
    "A frame waiting to be sent was dropped: the line went down.";
constexpr const char* kDroppedClosed =
    "A frame waiting to be sent was dropped: the port was closed.";
constexpr const char* kDroppedStopped =
    "A frame waiting to be sent was dropped: the receiving thread stopped.";
constexpr const char* kGoneForGood =
    "The pseudo-terminal of the port has closed for good; it is not opened again under this "
    "name.";

int32_t SerialPortThreadFunction(void* parameter) {
  return static_cast<CVYNSerialPort*>(parameter)->RunSerialPortThread();
}

void PrepareFrame(unsigned char* frame) { GetVYNCommandSet().CalculateChecksums(frame); }

_VYNSerialOpenFailure ToPublic(SerialOpenFailure failure) {
  switch (failure) {
    case SerialOpenFailure::kNone:
      return VYN_SERIAL_OPEN_OK;
    case SerialOpenFailure::kMissing:
      return VYN_SERIAL_OPEN_MISSING;
    case SerialOpenFailure::kPermission:
      return VYN_SERIAL_OPEN_PERMISSION;
    case SerialOpenFailure::kNotSerial:
      return VYN_SERIAL_OPEN_NOT_SERIAL;
    case SerialOpenFailure::kInUse:
      return VYN_SERIAL_OPEN_IN_USE;
    case SerialOpenFailure::kOther:
      break;
  }
  return VYN_SERIAL_OPEN_OTHER;
}

const char* ReasonText(_VYNSerialOpenFailure failure) {
  switch (failure) {
    case VYN_SERIAL_OPEN_OK:
      return "";
    case VYN_SERIAL_OPEN_MISSING:
      return "The port does not exist";
    case VYN_SERIAL_OPEN_PERMISSION:
      return "The port may not be opened by this user";
    case VYN_SERIAL_OPEN_NOT_SERIAL:
      return "The port is not a serial device";
    case VYN_SERIAL_OPEN_IN_USE:
      return "The port is in use by another program";
    case VYN_SERIAL_OPEN_OTHER:
      break;
  }
  return "The system refused the port";
}

}  // namespace

struct CVYNSerialPort::OpenAttempt {
  SerialOpenStep step = SerialOpenStep::kNone;
  int error = 0;
  std::string reason;  // the sentence for the log and GetLastOpenFailure
};

struct CVYNSerialPort::Io {
  // Owned by the receiving thread while it is attached to `requests`, by the
  // holder of the lifecycle lock otherwise.
  vyn::platform::SerialDevice device;
  vyn::platform::WakeUpEvent wake;
  vyn::serial::SendSlot slot;
  vyn::serial::PortRequests requests;
  // Fed on the receiving thread only; its counters are atomics for readers.
  CVYNFrameAssembler assembler;
  std::atomic<uint32_t> dropped_frames{0};

  vyn::Mutex failure_mutex;  // a leaf
  _VYNSerialOpenFailure last_failure VYN_GUARDED_BY(failure_mutex) = VYN_SERIAL_OPEN_OK;
  std::string last_reason VYN_GUARDED_BY(failure_mutex);

  // The receiving thread's own state, set up before it starts.
  unsigned char write_buffer[SERIAL_FRAME_BUFFER_SIZE] = {};
  uint32_t write_length = 0;  // the frame being written, 0 for none
  uint32_t written = 0;
  bool write_blocked = false;  // the line took no more: wait until it does
  bool lost_by_hang_up = false;
  bool gone_reported = false;

  void ResetThreadState() {
    write_length = 0;
    written = 0;
    write_blocked = false;
    lost_by_hang_up = false;
    gone_reported = false;
  }
};

CVYNSerialPort::CVYNSerialPort() : io_(std::make_unique<Io>()) {
  io_->assembler.SetSink([this](const unsigned char* frame, uint16_t length) {
    PublishFrame(MSG_SERIAL_FRAME_RECEIVED, frame, length);
  });
}

CVYNSerialPort::~CVYNSerialPort() { TerminateReceivingThread(); }

int32_t CVYNSerialPort::AddOutput(std::string text, _VYNSystemLogExEventType type) {
  return vyn::LogAddOutput(text, type, GetCOMPort(nullptr), "CVYNSerialPort", "");
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
  vyn::ScopedLock lock(&settings_lock_);
  port_name_ = std::move(port_name);
  return VYN_STATUS_SUCCESS;
}

std::string CVYNSerialPort::GetCOMPort(std::string* port_name) {
  vyn::ScopedLock lock(&settings_lock_);
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

bool CVYNSerialPort::OpenDevice(OpenAttempt* attempt) {
  Io& io = *io_;
  const std::string path = vyn::platform::SerialDevicePath(GetCOMPort(nullptr));
  io.device.Close();
  io.assembler.InitializeStatistics();
  const bool opened = io.device.Open(path, kBaudRates[baud_id_], &attempt->step, &attempt->error);
  const _VYNSerialOpenFailure failure =
      opened ? VYN_SERIAL_OPEN_OK
             : ToPublic(vyn::platform::ClassifyOpenFailure(attempt->step, attempt->error));
  if (!opened) {
    attempt->reason = std::string(ReasonText(failure)) + " (" + path + ": " +
                      vyn::platform::SystemErrorText(attempt->error) + ").";
  }
  vyn::MutexLock lock(&io.failure_mutex);
  io.last_failure = failure;
  io.last_reason = attempt->reason;
  return opened;
}

void CVYNSerialPort::ReportOpenFailure(const OpenAttempt& attempt) {
  int text = 1;
  switch (attempt.step) {
    case SerialOpenStep::kReadSettings:
      text = 2;
      break;
    case SerialOpenStep::kWriteSettings:
      text = 3;
      break;
    case SerialOpenStep::kSetTimeouts:
      text = 4;
      break;
    default:
      break;
  }
  char line[512];
  std::snprintf(line, sizeof line, "%s GetLastError() = %i.",
                GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, text), attempt.error);
  AddOutput(line, VYN_EVENT_ERROR);
  // The reason as an entry of its own, so that the line above stays exactly
  // what readers of the log look for.
  AddOutput(attempt.reason, VYN_EVENT_ERROR);
}

int32_t CVYNSerialPort::OpenSerialPort(bool report) {
  Io& io = *io_;
  OpenAttempt attempt;
  bool opened_here = false;
  int32_t result = VYN_STATUS_UNSPECIFIC_ERROR;
  {
    vyn::ScopedLock lifecycle(&lifecycle_lock_);
    int32_t answer = VYN_STATUS_UNSPECIFIC_ERROR;
    const PortRequest request = report ? PortRequest::kOpenReporting : PortRequest::kOpenQuietly;
    switch (io.requests.Submit(request, kRequestLimitMs, &io.wake, &answer)) {
      case RequestOutcome::kAnswered:
        result = answer;
        break;
      case RequestOutcome::kTimedOut:
        break;
      case RequestOutcome::kNoThread:
        // A quiet open is for a running thread only.
        if (!report) return VYN_STATUS_UNSPECIFIC_ERROR;
        opened_here = true;
        result = OpenDevice(&attempt) ? VYN_STATUS_SUCCESS : VYN_STATUS_UNSPECIFIC_ERROR;
        break;
    }
  }
  if (result == VYN_STATUS_SUCCESS) return result;
  if (opened_here) ReportOpenFailure(attempt);
  vyn::platform::SleepMilliseconds(kPauseAfterFailedOpenMs);
  return VYN_STATUS_UNSPECIFIC_ERROR;
}

int32_t CVYNSerialPort::CloseSerialPort(bool /*unused*/) {
  Io& io = *io_;
  vyn::ScopedLock lifecycle(&lifecycle_lock_);
  int32_t answer = VYN_STATUS_SUCCESS;
  switch (io.requests.Submit(PortRequest::kClose, kRequestLimitMs, &io.wake, &answer)) {
    case RequestOutcome::kNoThread:
      io.device.Close();
      return VYN_STATUS_SUCCESS;
    case RequestOutcome::kTimedOut:
      return VYN_STATUS_TIMEOUT;
    case RequestOutcome::kAnswered:
      break;
  }
  // The thread ends itself; collect it, so that the caller may start a new
  // one at once.
  if (answer == kClosedAndEnding) thread_.DestroyThread(true);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNSerialPort::InitializeReceivingThread() {
  Io& io = *io_;
  OpenAttempt attempt;
  {
    vyn::ScopedLock lifecycle(&lifecycle_lock_);
    if (thread_.IsRunning()) return VYN_STATUS_BUSY;
    if (OpenDevice(&attempt)) {
      io.ResetThreadState();
      io.slot.SetState(LinkState::kUp);
      io.requests.Attach();
      thread_.SetThreadName("VYN Serial Port");
      const int32_t status =
          thread_.CreateThread(&SerialPortThreadFunction, this, nullptr, 0, 0, false);
      if (status != VYN_STATUS_SUCCESS) {
        io.requests.Detach();
        io.slot.SetState(LinkState::kStopped);
      }
      return status;
    }
  }
  ReportOpenFailure(attempt);
  vyn::platform::SleepMilliseconds(kPauseAfterFailedOpenMs);
  return VYN_STATUS_UNSPECIFIC_ERROR;
}

int32_t CVYNSerialPort::TerminateReceivingThread() {
  Io& io = *io_;
  vyn::ScopedLock lifecycle(&lifecycle_lock_);
  // The stop request first, then the wake-up that makes the thread see it.
  thread_.DestroyThread(false);
  io.wake.Signal();
  thread_.DestroyThread(true);
  // The thread let go of the device at its end; asking orders this close
  // after its last use.
  if (!io.requests.Attached()) io.device.Close();
  return VYN_STATUS_SUCCESS;
}

bool CVYNSerialPort::IsRunning() { return thread_.IsRunning(); }

int32_t CVYNSerialPort::SendCommand(unsigned char* frame, uint32_t length) {
  if (!thread_.IsRunning()) return VYN_STATUS_BUSY;
  const int32_t status = io_->slot.Offer(frame, length, kSlotWaitMs, &PrepareFrame);
  if (status == VYN_STATUS_SUCCESS) io_->wake.Signal();
  return status;
}

int32_t CVYNSerialPort::WaitWhileBusy(uint32_t milliseconds) {
  return io_->slot.WaitUntilEmpty(milliseconds);
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

uint32_t CVYNSerialPort::GetDroppedFramesCount() { return io_->dropped_frames; }

_VYNSerialOpenFailure CVYNSerialPort::GetLastOpenFailure(std::string* reason) {
  vyn::MutexLock lock(&io_->failure_mutex);
  if (reason != nullptr) *reason = io_->last_reason;
  return io_->last_failure;
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

void CVYNSerialPort::CountDroppedFrame(uint32_t length, const char* text) {
  if (length == 0) return;
  ++io_->dropped_frames;
  AddOutput(text, VYN_EVENT_WARNING);
}

// --- The receiving thread -------------------------------------------------

void CVYNSerialPort::Pause(int milliseconds) {
  // Requests and the stop come through the wake-up, so they cut this short.
  io_->wake.Wait(static_cast<uint32_t>(milliseconds));
}

void CVYNSerialPort::LineLost() {
  Io& io = *io_;
  io.device.Close();
  io.write_length = 0;
  io.write_blocked = false;
  io.lost_by_hang_up = true;
  CountDroppedFrame(io.slot.SetState(LinkState::kDown), kDroppedLineDown);
}

bool CVYNSerialPort::ServeRequest() {
  Io& io = *io_;
  const PortRequest request = io.requests.Take();
  if (request == PortRequest::kNone) return false;
  // Every request closes the device first: a frame waiting for it goes
  // nowhere else.
  io.device.Close();
  io.write_length = 0;
  io.write_blocked = false;
  io.lost_by_hang_up = false;
  const uint32_t waiting = io.slot.SetState(LinkState::kDown);
  CountDroppedFrame(waiting, kDroppedClosed);
  if (request == PortRequest::kClose) {
    // Closed with nothing waiting: the thread's work is done. With a frame
    // dropped the port counts as lost and is opened again.
    io.requests.Answer(waiting == 0 ? kClosedAndEnding : VYN_STATUS_SUCCESS);
    return waiting == 0;
  }
  OpenAttempt attempt;
  const bool opened = OpenDevice(&attempt);
  if (opened) io.slot.SetState(LinkState::kUp);
  if (!opened && request == PortRequest::kOpenReporting) ReportOpenFailure(attempt);
  io.requests.Answer(opened ? VYN_STATUS_SUCCESS : VYN_STATUS_UNSPECIFIC_ERROR);
  return false;
}

bool CVYNSerialPort::ReopenLostPort() {
  Io& io = *io_;
  if (io.lost_by_hang_up) {
    const std::string path = vyn::platform::SerialDevicePath(GetCOMPort(nullptr));
    switch (io.device.CheckReopen(path)) {
      case vyn::platform::ReopenVerdict::kGoneForGood:
        if (!io.gone_reported) AddOutput(kGoneForGood, VYN_EVENT_WARNING);
        io.gone_reported = true;
        Pause(kIdleWaitMs);
        return false;
      case vyn::platform::ReopenVerdict::kNotYet:
        Pause(kPauseAfterFailedOpenMs);
        return false;
      case vyn::platform::ReopenVerdict::kReopen:
        break;
    }
  }
  OpenAttempt attempt;
  if (!OpenDevice(&attempt)) {
    Pause(kPauseAfterFailedOpenMs);
    return false;
  }
  io.lost_by_hang_up = false;
  io.gone_reported = false;
  io.slot.SetState(LinkState::kUp);
  return true;
}

bool CVYNSerialPort::ReadOnce(unsigned char* buffer, bool hung_up) {
  Io& io = *io_;
  const auto result =
      vyn::platform::ReadDescriptor(io.device.descriptor(), buffer, kReadBufferSize);
  switch (result.status) {
    case IoStatus::kDone:
      // Straight to the assembler: a frame is published at its last byte.
      io.assembler.Feed(buffer, result.count, GetTickCount());
      return true;
    case IoStatus::kWouldBlock:
      // Nothing left to read: a hang-up now counts.
      return !hung_up;
    case IoStatus::kHungUp:
    case IoStatus::kFailed:
      // A descriptor that fails every read would have the thread spin: it
      // is given up and opened again, as a lost port.
      break;
  }
  return false;
}

bool CVYNSerialPort::WriteWaitingFrame() {
  Io& io = *io_;
  if (io.write_length == 0) {
    io.write_length = io.slot.Peek(io.write_buffer);
    io.written = 0;
    if (io.write_length == 0) return true;
  }
  io.write_blocked = false;
  bool failed = false;
  while (io.written < io.write_length) {
    const auto result = vyn::platform::WriteDescriptor(
        io.device.descriptor(), io.write_buffer + io.written, io.write_length - io.written);
    if (result.status == IoStatus::kDone) {
      io.written += static_cast<uint32_t>(result.count);
    } else if (result.status == IoStatus::kWouldBlock) {
      // The line is slower than us: go on when poll() says it takes more.
      io.write_blocked = true;
      return true;
    } else if (result.status == IoStatus::kHungUp) {
      return false;
    } else {
      failed = true;
      break;
    }
  }
  const uint32_t length = io.write_length;
  io.write_length = 0;
  // A failed write is not counted, but reported and freed all the same.
  if (!failed) io.assembler.CountSentFrame(length);
  io.slot.Complete();
  PublishFrame(MSG_SERIAL_FRAME_SENT, io.write_buffer, length);
  return true;
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
  if (dump_mode_ != 0) {
    timeout = std::min(timeout, until(last_statistics_tick_, kStatisticsPeriodMs));
  }
  return timeout;
}

int32_t CVYNSerialPort::RunSerialPortThread() {
  Io& io = *io_;
  AddOutput(GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, 7), VYN_EVENT_INFORMATION);
  std::unique_ptr<unsigned char[]> buffer(new (std::nothrow) unsigned char[kReadBufferSize]);
  if (!buffer) {
    CountDroppedFrame(io.slot.SetState(LinkState::kStopped), kDroppedStopped);
    io.requests.Detach();
    AddOutput(GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, 8), VYN_EVENT_ERROR);
    return static_cast<int32_t>(kNoMemoryExitCode);
  }
  while (thread_.IsRunning()) {
    thread_.UpdateStatus();
    const uint32_t now = GetTickCount();
    if (dump_mode_ != 0 && now - last_statistics_tick_ > kStatisticsPeriodMs) {
      AddOutput(io.assembler.FormatStatistics(), VYN_EVENT_DEBUG);
      last_statistics_tick_ = now;
    }
    // A close with nothing waiting ends the thread; CloseSerialPort
    // collects it (DestroyThread), so it is not released here: a thread
    // that released itself could still be in its procedure's last steps
    // while its owner goes away.
    if (ServeRequest()) break;
    if (!io.device.IsOpen() && !ReopenLostPort()) continue;
    const auto ready = vyn::platform::WaitForDescriptor(io.device.descriptor(), io.write_blocked,
                                                        &io.wake, WaitTimeoutMs(now));
    if (ready.woken) io.wake.Clear();
    // Whatever is still buffered is read before a hang-up counts.
    bool alive = true;
    if (ready.readable || ready.hung_up) alive = ReadOnce(buffer.get(), ready.hung_up);
    if (alive && (!io.write_blocked || ready.writable)) alive = WriteWaitingFrame();
    if (!alive) LineLost();
    io.assembler.CheckTimeout(GetTickCount());
  }
  CountDroppedFrame(io.slot.SetState(LinkState::kStopped), kDroppedStopped);
  io.write_length = 0;
  // The device is the lifecycle lock holder's from here on.
  io.requests.Detach();
  AddOutput(GetVYNLanguage().GetString(VYN_MODULE_SERIAL_PORT, 9), VYN_EVENT_INFORMATION);
  return 0;
}
