// CVYNSerialPort: the one serial line to the device. It keeps the line
// settings (port name, baud rate as an id, framing), opens the port for its
// exclusive use, and runs one receiving thread, "VYN Serial Port", that does
// all of the port's I/O: it reads what arrives and feeds the frame assembler,
// writes the one frame queued with SendCommand, publishes every received and
// every written frame through the library's message queue
// (MSG_SERIAL_FRAME_RECEIVED, MSG_SERIAL_FRAME_SENT, each carrying a
// _SERIAL_FRAME_RECORD), reopens a lost port and, in dump mode, writes the
// link statistics to the log once a second.
//
// The receiving thread waits in poll() on the port and on a wake-up
// descriptor: a frame queued by SendCommand is written at once, an idle port
// costs no processor time, and a read is complete after 2 ms of quiet on the
// line (or when 32768 bytes have arrived). A port that hangs up (an unplugged
// adapter, a closed pseudo-terminal) is closed and reopened by its name, pass
// after pass, 10 ms apart while that fails; nothing is logged meanwhile.
//
// Port names: a name with '/' is a path; "COMn" is /dev/ttyS<n-1>; any other
// name is /dev/<name>. Names of any length are accepted.
// Frames: SendCommand takes at most 512 bytes (the send slot); a longer frame,
// a null frame or a length of 0 is refused with VYN_STATUS_INVALID_PARAMETER.
// CloseSerialPort while the receiving thread runs: the thread closes the port
// at its next pass; with no frame waiting it then ends itself ("The receiving
// thread has been terminated."), with a frame waiting it drops that frame
// (without a sent message) and reopens the port, as a lost port.
//
// Ownership: the port owns its device, thread, events and buffers.
// Thread-safety: settings, SendCommand, WaitWhileBusy and the start and stop
// operations may be called from any thread. The pass lock is held by the
// receiving thread for each pass; OpenSerialPort and CloseSerialPort take it
// too, so they never change the device under a running pass. Lock order: the
// thread object's lock (TerminateReceivingThread) before the pass lock.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/core/log_event_type.h"
#include "vyn/device/frame_format.h"
#include "vyn/serial/serial_statistics.h"
#include "vyn/threads/monitored_thread.h"

class VYN_EXPORT CVYNSerialPort {
 public:
  static constexpr uint32_t kSendSlotSize = 512;
  static constexpr uint32_t kReadBufferSize = 32768;

  CVYNSerialPort();
  ~CVYNSerialPort();
  CVYNSerialPort(const CVYNSerialPort&) = delete;
  CVYNSerialPort& operator=(const CVYNSerialPort&) = delete;

  // Stores the name; then a baud id 0 to 10, else VYN_STATUS_INVALID_PARAMETER
  // (with the name already changed).
  int32_t SetSerialPortSettings(std::string port_name, int32_t baud_id);
  int32_t GetSerialPortSettings(std::string* port_name, int32_t* baud_id);
  int32_t SetCOMPort(std::string port_name);
  std::string GetCOMPort(std::string* port_name);
  int32_t SetBaudRateAsID(int32_t baud_id);
  int32_t GetBaudRateAsID(int32_t* baud_id);
  int32_t GetBaudRate();
  // PROTOCOL_CCPU or PROTOCOL_MCPU; VYN_STATUS_INVALID_PARAMETER otherwise.
  int32_t SetProtocol(unsigned short protocol);
  int32_t InitializeSerialPortStatus();

  // Opens and configures the port (0, or -1 after a 10 ms pause). With
  // `report` false it is a quiet reopen that only works while the receiving
  // thread runs; with `report` true failures are logged.
  int32_t OpenSerialPort(bool report);
  int32_t CloseSerialPort(bool unused);
  int32_t InitializeReceivingThread();
  int32_t RunSerialPortThread();
  int32_t TerminateReceivingThread();
  bool IsRunning();
  // Queues one frame for writing after filling in its sequence number and
  // checksums (in the caller's buffer too). VYN_STATUS_BUSY when the thread
  // does not run or the slot stays busy for 100 ms.
  int32_t SendCommand(unsigned char* frame, uint32_t length);
  // 0 as soon as no frame waits; VYN_STATUS_TIMEOUT when `milliseconds` ran
  // out (at once for 0).
  int32_t WaitWhileBusy(uint32_t milliseconds);
  int32_t SetDumpMode(uint32_t mode);
  uint32_t GetDumpMode();

  // The link statistics line ("Serial status; received; ...") and the
  // counters behind it.
  std::string GetSerialPortStatus();
  _SERIAL_LINK_STATISTICS GetSerialPortStatistics();

 private:
  int32_t AddOutput(std::string text, _VYNSystemLogExEventType type);
  // Open, configure and count from 0; logs failures when `report`.
  int32_t OpenDevice(bool report, bool pause_on_failure);
  void LogOpenFailure(int step, int error);
  void PublishFrame(uint32_t message_type, const unsigned char* frame, uint32_t length);
  // Writes the waiting frame; false when a stop cut the write short.
  void WriteWaitingFrame();
  // Reads until the line has been quiet for 2 ms; false when the port hung up.
  bool ReadBurst(unsigned char* buffer);
  void DropWaitingFrame();
  int WaitTimeoutMs(uint32_t now) const;

  std::mutex settings_mutex_;  // guards the port name
  std::string port_name_ = "COM1";
  std::atomic<int32_t> baud_id_{6};
  std::atomic<uint32_t> dump_mode_{0};
  uint32_t last_statistics_tick_ = 0;
  CRITICAL_SECTION pass_lock_;
  CVYNMonitoredThread thread_;
  unsigned char send_slot_[kSendSlotSize] = {};
  std::atomic<uint32_t> send_length_{0};
  std::atomic<bool> stopping_{false};
  std::atomic<bool> close_requested_{false};
  std::atomic<int> pass_waiters_{0};
  // The device, the wake-up of the thread, the events and the assembler:
  // built on the platform layer, so kept out of this header.
  struct Io;
  std::unique_ptr<Io> io_;
};

VYN_EXPORT CVYNSerialPort& GetVYNSerialPort();
