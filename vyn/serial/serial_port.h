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
// The receiving thread owns the device while it runs. It waits in poll() on
// the port and on a wake-up descriptor: a frame queued by SendCommand is
// written at once, an idle port costs no processor time, and the bytes of
// every read go to the frame assembler as they arrive, so a frame is
// published as soon as its last byte is in. OpenSerialPort and
// CloseSerialPort are requests that the thread carries out while it runs;
// without a thread the caller opens and closes the port itself.
//
// The line going down: when the port hangs up (an unplugged adapter, a
// closed pseudo-terminal), the thread closes it and reopens it quietly,
// 10 ms apart while that fails. A frame that the application handed over is
// written only to the port that was open when it was accepted, never after
// the line went down:
// - a frame still waiting when the port hangs up, is closed or reopened, or
//   the thread stops is dropped, counted (GetDroppedFramesCount) and logged
//   as a warning; it gets no MSG_SERIAL_FRAME_SENT;
// - SendCommand while the port is down answers VYN_STATUS_NO_CONNECTION and
//   queues nothing, also when the line goes down while it waits for the
//   slot.
// A real port comes back under its name. A pseudo-terminal whose other side
// went away never does under its own name (the number goes to the next
// terminal session anybody opens); reached through a symbolic link, it comes
// back when the link is made to lead to a new device. A port gone for good
// is logged once as a warning; the thread keeps running idle, SendCommand
// answers VYN_STATUS_NO_CONNECTION, and OpenSerialPort(true) or a new port
// name (SetCOMPort) opens again.
//
// Open failures: OpenSerialPort(true) and InitializeReceivingThread log the
// failed step as "<text> GetLastError() = <errno>." and right after it a
// second error entry with the reason in words and the system's text, for
// example "The port is in use by another program (/dev/ttyUSB0: Device or
// resource busy)."; GetLastOpenFailure gives the same to a program.
//
// Port names: a name with '/' is a path; "COMn" is /dev/ttyS<n-1>; any other
// name is looked up under /dev. Names of any length are accepted.
// Frames: SendCommand takes at most 512 bytes (the send slot); a longer frame,
// a null frame or a length of 0 is refused with VYN_STATUS_INVALID_PARAMETER.
// CloseSerialPort while the receiving thread runs: the thread closes the
// port; with no frame waiting it ends itself ("The receiving thread has been
// terminated.") and CloseSerialPort returns once it has ended; with a frame
// waiting it drops that frame and reopens the port, as a lost port.
//
// Ownership: the port owns its device, thread, events and buffers.
// Thread-safety: settings, SendCommand, WaitWhileBusy, the statistics and the
// start and stop operations may be called from any thread, any number of
// them at once, except from the receiving thread itself (no application
// code runs there). Each frame SendCommand accepts is written exactly once
// (or dropped as above); senders wait for the one slot up to 100 ms.
//
// Locks, in the order in which they may be taken:
// 1. the lifecycle lock: serialises InitializeReceivingThread,
//    TerminateReceivingThread, OpenSerialPort and CloseSerialPort. It is held
//    while they wait for the receiving thread (its start, an answer to a
//    request, its end), which never takes it.
// 2. the thread object's own lock (inside CreateThread, DestroyThread,
//    EndOfThread; held for a few instructions, never across a wait).
// 3. the request mutex and the send slot's mutex (internal; leaves). The
//    slot's mutex is held while the command set fills in a frame's
//    sequence number and checksums, which takes the command set's sequence
//    lock after it.
// The settings lock (port name) is a leaf taken alone. The receiving thread
// holds no lock of the port while it waits for the descriptor, while the
// frame assembler's sink publishes a frame (Notify takes the library queue's
// receiver lock and each receiver's message lock), and while it logs (the
// log's queue lock); none of those reach back into the port's locks.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/core/log_event_type.h"
#include "vyn/device/frame_format.h"
#include "vyn/serial/serial_statistics.h"
#include "vyn/threads/monitored_thread.h"

// Why the last open of the serial port failed.
enum _VYNSerialOpenFailure {
  VYN_SERIAL_OPEN_OK = 0,          // the last open succeeded (or none was tried)
  VYN_SERIAL_OPEN_MISSING = 1,     // no such port
  VYN_SERIAL_OPEN_PERMISSION = 2,  // this user may not open it
  VYN_SERIAL_OPEN_NOT_SERIAL = 3,  // it is not a serial device
  VYN_SERIAL_OPEN_IN_USE = 4,      // another program holds it
  VYN_SERIAL_OPEN_OTHER = 5,       // the system refused it otherwise
};

class VYN_EXPORT CVYNSerialPort {
 public:
  // The longest frame SendCommand accepts, in bytes.
  static constexpr uint32_t kSendSlotSize = 512;
  // The most bytes the receiving thread reads from the port at once.
  static constexpr uint32_t kReadBufferSize = 32768;

  CVYNSerialPort();
  ~CVYNSerialPort();
  CVYNSerialPort(const CVYNSerialPort&) = delete;
  CVYNSerialPort& operator=(const CVYNSerialPort&) = delete;

  // Stores the name; then a baud id 0 to 10, else VYN_STATUS_INVALID_PARAMETER
  // (with the name already changed).
  int32_t SetSerialPortSettings(std::string port_name, int32_t baud_id);
  // Copies the port name and baud id into the outputs that are not null; 0.
  int32_t GetSerialPortSettings(std::string* port_name, int32_t* baud_id);
  // Stores the port name (see Port names above); 0. It takes effect at the
  // next open, the receiving thread's reopen of a lost port included.
  int32_t SetCOMPort(std::string port_name) VYN_EXCLUDES(settings_lock_);
  // The port name, also copied into `port_name` when that is not null.
  std::string GetCOMPort(std::string* port_name) VYN_EXCLUDES(settings_lock_);
  // Baud ids 0 to 10 stand for 1200, 2400, 4800, 9600, 19200, 38400, 57600,
  // 115200, 230400, 460800 and 921600 baud; another id is refused with
  // VYN_STATUS_INVALID_PARAMETER and the setting kept. Used at the next open.
  int32_t SetBaudRateAsID(int32_t baud_id);
  // The baud id, also copied into `baud_id` when that is not null.
  int32_t GetBaudRateAsID(int32_t* baud_id);
  // The baud rate of the current id, in bits per second.
  int32_t GetBaudRate();
  // PROTOCOL_CCPU or PROTOCOL_MCPU; VYN_STATUS_INVALID_PARAMETER otherwise.
  int32_t SetProtocol(unsigned short protocol);
  // Sets the link statistics' counters to zero; 0. Every open does the same.
  int32_t InitializeSerialPortStatus();

  // Opens and configures the port (0, or -1 after a 10 ms pause). With
  // `report` false it is a quiet reopen that only works while the receiving
  // thread runs; with `report` true failures are logged.
  int32_t OpenSerialPort(bool report) VYN_EXCLUDES(lifecycle_lock_);
  // 0; VYN_STATUS_TIMEOUT only when a running receiving thread did not take
  // the request within 5 s (it is frozen after a hang).
  int32_t CloseSerialPort(bool unused) VYN_EXCLUDES(lifecycle_lock_);
  // Opens the port and starts the receiving thread: 0; VYN_STATUS_BUSY when
  // the thread runs already; VYN_STATUS_UNSPECIFIC_ERROR after a failed open
  // (logged, GetLastOpenFailure, then a 10 ms pause); the thread's own start
  // status when it could not be started.
  int32_t InitializeReceivingThread() VYN_EXCLUDES(lifecycle_lock_);
  // The receiving thread's body, run by the thread that
  // InitializeReceivingThread starts; an application never calls it. 0 when
  // stopped, non-zero when its read buffer could not be allocated.
  int32_t RunSerialPortThread();
  // Stops the receiving thread, waits for its end and closes the port; a
  // waiting frame is dropped. 0, also when no thread ran. The destructor
  // calls it.
  int32_t TerminateReceivingThread() VYN_EXCLUDES(lifecycle_lock_);
  // True while the receiving thread runs (the port may still be down).
  bool IsRunning();
  // Queues one frame for writing after filling in its sequence number and
  // checksums (in the caller's buffer too). VYN_STATUS_BUSY when the thread
  // does not run or the slot stays busy for 100 ms; VYN_STATUS_NO_CONNECTION
  // while the port is down. A refused frame is left as it was.
  int32_t SendCommand(unsigned char* frame, uint32_t length);
  // 0 as soon as no frame waits; VYN_STATUS_TIMEOUT when `milliseconds` ran
  // out (at once for 0).
  int32_t WaitWhileBusy(uint32_t milliseconds);
  // Any mode other than 0 makes the receiving thread log the link statistics
  // once a second, as debug entries; 0 stops it. Always 0.
  int32_t SetDumpMode(uint32_t mode);
  // The mode last set; 0 at first.
  uint32_t GetDumpMode();

  // The link statistics line ("Serial status; received; ...") and the
  // counters behind it.
  std::string GetSerialPortStatus();
  // A snapshot of the counters since the last open or
  // InitializeSerialPortStatus.
  _SERIAL_LINK_STATISTICS GetSerialPortStatistics();
  // Accepted frames that were dropped instead of written (see above), since
  // the port object was made; opening the port does not reset it.
  uint32_t GetDroppedFramesCount();
  // Why the last open (by any operation, the thread's quiet reopens
  // included) failed; VYN_SERIAL_OPEN_OK after a successful one. `reason`,
  // when given, receives the sentence of the log's second entry (empty
  // after a success).
  _VYNSerialOpenFailure GetLastOpenFailure(std::string* reason);

 private:
  struct Io;
  struct OpenAttempt;

  int32_t AddOutput(std::string text, _VYNSystemLogExEventType type);
  // Closes the device, counts from 0 and opens it again by the current name
  // and baud rate. The caller owns the device (see PortRequests).
  bool OpenDevice(OpenAttempt* attempt);
  void ReportOpenFailure(const OpenAttempt& attempt);
  void PublishFrame(uint32_t message_type, const unsigned char* frame, uint32_t length);
  void CountDroppedFrame(uint32_t length, const char* text);
  // The receiving thread's steps.
  bool ServeRequest();
  bool ReopenLostPort();
  bool ReadOnce(unsigned char* buffer, bool hung_up);
  bool WriteWaitingFrame();
  void LineLost();
  void Pause(int milliseconds);
  int WaitTimeoutMs(uint32_t now) const;

  CRITICAL_SECTION settings_lock_;
  std::string port_name_ VYN_GUARDED_BY(settings_lock_) = "COM1";
  std::atomic<int32_t> baud_id_{6};
  std::atomic<uint32_t> dump_mode_{0};
  uint32_t last_statistics_tick_ = 0;  // the receiving thread's
  CRITICAL_SECTION lifecycle_lock_ VYN_ACQUIRED_BEFORE(settings_lock_);
  CVYNMonitoredThread thread_;
  // The device, the wake-up of the thread, the send slot, the requests and
  // the assembler: built on the platform layer, so kept out of this header.
  std::unique_ptr<Io> io_;
};

// The process's one CVYNSerialPort, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNSerialPort& GetVYNSerialPort();
