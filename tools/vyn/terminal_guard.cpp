#include "tools/vyn/terminal_guard.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdlib>

namespace vyn::tool {
namespace {

// The device path of a port name, by the rules the library opens ports
// with: a path as it is, COMn as /dev/ttyS(n-1), any other name below /dev.
std::string DevicePath(const std::string& port) {
  if (port.find('/') != std::string::npos) return port;
  if (port.size() > 3 && port.compare(0, 3, "COM") == 0) {
    char* end = nullptr;
    const long number = std::strtol(port.c_str() + 3, &end, 10);
    if (end != nullptr && *end == '\0' && number >= 1) {
      return "/dev/ttyS" + std::to_string(number - 1);
    }
  }
  return "/dev/" + port;
}

}  // namespace

TerminalGuard::TerminalGuard(const std::string& port) {
  const int descriptor =
      open(DevicePath(port).c_str(), O_RDONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor < 0) return;
  if (isatty(descriptor) != 1 || tcgetattr(descriptor, &saved_) != 0) {
    close(descriptor);
    return;
  }
  descriptor_ = descriptor;
}

TerminalGuard::~TerminalGuard() {
  if (descriptor_ < 0) return;
  tcsetattr(descriptor_, TCSANOW, &saved_);
  close(descriptor_);
}

}  // namespace vyn::tool
