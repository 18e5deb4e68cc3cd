// A serial device opened for the library's exclusive use, in raw 8N1 mode
// without flow control, for the receiving thread's poll()-driven I/O
// (descriptor_io.h).
//
// Port names: a name with '/' is a path (a pseudo-terminal, a symlink);
// "COMn" means /dev/ttyS<n-1>; any other name means /dev/<name>.
//
// Exclusive use: the device is locked with an advisory lock and TIOCEXCL, so
// that a second opener (the bootloader client, another process) is refused
// with EBUSY instead of stealing bytes.
//
// Reopening after a hang-up: a real port (a USB adapter unplugged and
// plugged in again) comes back under its name. A pseudo-terminal does not:
// once its other side has closed, its number is free for the next terminal
// session that any user opens, and opening that name again would take over
// somebody else's terminal. So the device remembers what it reached at its
// last successful open, and CheckReopen tells whether the name may be opened
// again: a pseudo-terminal reached by its own name is gone for good; one
// reached through a symbolic link comes back only when the link has been
// replaced or re-pointed since (a simulator plugging in a new terminal does
// that), never while the old link still names the old, possibly reused,
// terminal.
//
// Closing gives the terminal back its settings from before the open and lifts
// the exclusive use, so that a terminal session used as a port by mistake
// is not left raw and locked.
//
// Ownership: the object owns the descriptor and closes it.
// Thread-safety: none; one thread opens, uses and closes a device.
#pragma once

#include <cstdint>
#include <ctime>
#include <memory>
#include <string>

namespace vyn::platform {

std::string SerialDevicePath(const std::string& port_name);

// The step of opening that failed, as the services report them.
enum class SerialOpenStep {
  kNone,
  kOpen,           // the device cannot be opened (or is in use)
  kReadSettings,   // its line settings cannot be read
  kWriteSettings,  // its line settings cannot be written
  kSetTimeouts,    // it cannot be switched to non-blocking reads
};

// Why an open failed, in the terms a user acts on.
enum class SerialOpenFailure {
  kNone,
  kMissing,     // no such device (never there, or unplugged)
  kPermission,  // the user may not open it
  kNotSerial,   // it exists but is no terminal device (a file, a directory)
  kInUse,       // another program holds it
  kOther,       // anything else; the system's error text tells more
};

SerialOpenFailure ClassifyOpenFailure(SerialOpenStep step, int error);

enum class ReopenVerdict {
  kReopen,      // open the name again
  kNotYet,      // not now: the name does not lead to a new device (yet)
  kGoneForGood  // the device cannot come back under this name
};

class ExclusiveTerminal;

class SerialDevice {
 public:
  SerialDevice();
  ~SerialDevice();
  SerialDevice(const SerialDevice&) = delete;
  SerialDevice& operator=(const SerialDevice&) = delete;

  // Opens `path` at `baud` (one of the standard rates 1200 ... 921600).
  // On failure the device stays closed, and `failed_step` and `error` (an
  // errno value) say why.
  bool Open(const std::string& path, uint32_t baud, SerialOpenStep* failed_step, int* error);
  void Close();
  bool IsOpen() const;
  int descriptor() const;

  // After the device hung up: may `path` be opened again (see above)? A path
  // other than the one last opened is always kReopen: somebody chose it.
  ReopenVerdict CheckReopen(const std::string& path) const;

 private:
  // What the last successful open reached; kept after Close.
  struct Reached {
    bool valid = false;
    std::string path;
    bool pseudo_terminal = false;
    bool through_link = false;
    // The link itself: a replaced link is a new file (or at least has a new
    // change time), a re-pointed one has a new target.
    uint64_t link_device = 0;
    uint64_t link_inode = 0;
    timespec link_changed{};
    std::string link_target;
  };

  std::unique_ptr<ExclusiveTerminal> terminal_;
  Reached reached_;
};

}  // namespace vyn::platform
