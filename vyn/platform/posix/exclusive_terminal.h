// ExclusiveTerminal: a terminal device held by this process alone, in raw
// mode, the one way the serial device and the bootloader port reach a line.
//
// Open takes the device with an advisory lock (flock), which keeps out every
// cooperating opener, this library's other users of the line included, and
// with TIOCEXCL, the kernel's refusal for any other; a device held elsewhere
// is EBUSY. It remembers the terminal's settings, and Close gives them back
// and lifts TIOCEXCL, so that a terminal session used as a port by mistake
// gets its echo and line editing back and the next program may open it.
//
// SetRawLine sets 8 data bits, one stop bit, no flow control, DTR and RTS
// inactive, raw bytes both ways and VMIN 1 / VTIME 0: with the descriptor's
// O_NONBLOCK an empty line reads as EAGAIN, so a read of 0 bytes can only
// mean that the device has gone.
//
// Ownership: the object owns the descriptor and closes it.
// Thread-safety: none; one thread opens, uses and closes a terminal.
#pragma once

#include <termios.h>

#include <cstdint>
#include <string>

#include "vyn/platform/scoped_descriptor.h"

namespace vyn::platform {

enum class Parity {
  kNone,
  // Even parity, checked on input without marking: a damaged byte reads as 0.
  kEven,
};

class ExclusiveTerminal {
 public:
  ExclusiveTerminal() = default;
  ~ExclusiveTerminal() { Close(); }
  ExclusiveTerminal(const ExclusiveTerminal&) = delete;
  ExclusiveTerminal& operator=(const ExclusiveTerminal&) = delete;

  // Opens `path` non-blocking, close-on-exec and without becoming its
  // controlling terminal; closes a terminal held before. False with the
  // errno in `error` when the open or the lock failed (EBUSY: in use);
  // nothing stays open then. A device whose settings cannot be read (no
  // terminal) stays open: settings_error() tells, and SetRawLine refuses it.
  bool Open(const std::string& path, int* error);
  // Raw line at `baud` (a standard rate from 1200 to 921600; EINVAL for
  // another). With even parity a pseudo-terminal, which keeps no parity, is
  // accepted without; any other device must keep every setting. False with
  // the errno in `error`.
  bool SetRawLine(uint32_t baud, Parity parity, int* error);
  // Restores the settings found at Open, lifts TIOCEXCL and closes (which
  // also drops the lock). On a device that has gone the first two fail
  // harmlessly.
  void Close();

  bool IsOpen() const { return descriptor_.IsValid(); }
  // The errno of reading the settings at Open; 0 when they were read.
  int settings_error() const { return settings_error_; }
  int descriptor() const { return descriptor_.get(); }
  // True when the terminal is the slave side of a pseudo-terminal, which
  // keeps no parity setting and has no line to hang up.
  bool IsPseudoTerminal() const;

 private:
  ScopedDescriptor descriptor_;
  termios saved_{};
  int settings_error_ = 0;
};

// The termios speed constant for a baud rate; B0 for a rate the terminal
// interface has no constant for.
speed_t TerminalSpeedOf(uint32_t baud);

}  // namespace vyn::platform
