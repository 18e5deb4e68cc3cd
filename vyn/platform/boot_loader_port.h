// The serial port of the bootloader client: a device opened for this
// process alone, set to 8 data bits, even parity with parity checking and
// one stop bit, and read one byte at a time under a time limit that the
// client changes between phases of its protocol.
//
// Time limits: a read waits up to the limit last set (SetReadTimeout): 0
// takes only a byte that is already there, a negative limit waits until a
// byte comes. Every wait also ends at once when the line hangs up (an
// unplugged adapter, a closed pseudo-terminal) or when another thread calls
// Cancel, so that no limit, however long, can hold a caller whose line is
// dead or who has given up.
//
// Writes go out whole, waiting for room in the device's queue for at most a
// few seconds beyond the time the bytes need on the line. A write that
// fails (hang-up, error, a line that takes nothing) reports nothing itself;
// the next read then brings no byte, which is how a lost command shows.
//
// Parity: a pseudo-terminal keeps no parity setting (the kernel clears it),
// so there the settings are accepted without; a real device that does not
// keep every setting is refused.
//
// Queue sizes: the kernel's terminal queues (4 KiB each way) are used as
// they are; the client never has more than one block of 259 bytes in flight.
//
// Closing gives the terminal back its settings from before the open and
// lifts the exclusive use, as the serial device does.
//
// Ownership: the object owns its terminal and its cancel event.
// Thread-safety: Cancel and IsCancelled may be called from any thread; every
// other operation belongs to the one thread that uses the port. Lock order:
// the cancel lock is taken alone, never while another lock is requested.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

#include "vyn/base/mutex.h"
#include "vyn/base/thread_annotations.h"

namespace vyn::platform {

class ExclusiveTerminal;
class WakeUpEvent;

class BootLoaderPort {
 public:
  BootLoaderPort();
  ~BootLoaderPort();
  BootLoaderPort(const BootLoaderPort&) = delete;
  BootLoaderPort& operator=(const BootLoaderPort&) = delete;

  // Opens the device at `path` for reading and writing, for this process
  // alone (EBUSY when another holds it). Closes a device held before. False
  // on failure, with errno in `error` when given; nothing stays open then.
  bool Open(const std::string& path, int* error) VYN_EXCLUDES(cancel_lock_);
  // Sets the line: `baud` (a standard rate from 1200 to 921600), 8E1,
  // parity checking on (a byte with a parity error reads as 0), no flow
  // control, DTR and RTS inactive, raw bytes both ways; then discards
  // whatever waits in either direction. False when a setting cannot be made.
  bool Configure(uint32_t baud, int* error);
  // The time limit of the following reads in milliseconds; negative: none.
  void SetReadTimeout(int64_t timeout_ms);
  // One byte (0 to 255), or -1 when none comes within the limit, the line
  // has hung up, the port is closed or cancelled, or the last write failed
  // (that failure is then cleared).
  int ReadByte();
  // Writes all bytes; see the header comment for failures.
  void Write(const uint8_t* data, size_t size);
  // Discards bytes received and not read, and bytes not yet sent.
  void Flush();
  // Waits `milliseconds` unless the port is cancelled; false when cancelled.
  bool Pause(int milliseconds);
  void Close();
  bool IsOpen() const;
  int descriptor() const;

  // Ends the current wait and makes every later read or write fail at once,
  // until ResetCancel. Any thread.
  void Cancel() VYN_EXCLUDES(cancel_lock_);
  void ResetCancel() VYN_EXCLUDES(cancel_lock_);
  bool IsCancelled() const { return cancelled_.load(std::memory_order_acquire); }

 private:
  std::unique_ptr<ExclusiveTerminal> terminal_;
  int64_t read_timeout_ms_ = -1;
  bool write_failed_ = false;
  std::atomic<bool> cancelled_{false};
  // A leaf lock: nothing is called while it is held but the signal of the
  // cancel event.
  Mutex cancel_lock_;
  // Raised by Cancel and taken back by ResetCancel; every wait watches it.
  // Made at the first Open, so that loading the library opens nothing, and
  // kept to the end. Open sets it and Cancel uses it under the lock; the
  // port's own thread, the only one that sets it, reads it without.
  std::unique_ptr<WakeUpEvent> cancel_;
};

}  // namespace vyn::platform
