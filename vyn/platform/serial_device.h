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
// Ownership: the object owns the descriptor and closes it.
// Thread-safety: none; one thread opens, uses and closes a device.
#pragma once

#include <cstdint>
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

class SerialDevice {
 public:
  SerialDevice() = default;
  ~SerialDevice();
  SerialDevice(const SerialDevice&) = delete;
  SerialDevice& operator=(const SerialDevice&) = delete;

  // Opens `path` at `baud` (one of the standard rates 1200 ... 921600).
  // On failure the device stays closed, and `failed_step` and `error` (an
  // errno value) say why.
  bool Open(const std::string& path, uint32_t baud, SerialOpenStep* failed_step, int* error);
  void Close();
  bool IsOpen() const { return descriptor_ >= 0; }
  int descriptor() const { return descriptor_; }

 private:
  int descriptor_ = -1;
};

}  // namespace vyn::platform
