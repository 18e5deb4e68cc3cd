#include "vyn/platform/posix/terminal_helpers.h"

#include <sys/stat.h>
#include <sys/sysmacros.h>

namespace vyn::platform {
namespace {

// Device numbers of pseudo-terminal slaves: the Unix 98 ones (/dev/pts/N)
// and the old BSD ones (/dev/ttyp0 ...).
constexpr unsigned kPtySlaveMajorFirst = 136;
constexpr unsigned kPtySlaveMajorLast = 143;
constexpr unsigned kBsdPtySlaveMajor = 3;

}  // namespace

speed_t TerminalSpeedOf(uint32_t baud) {
  switch (baud) {
    case 1200:
      return B1200;
    case 2400:
      return B2400;
    case 4800:
      return B4800;
    case 9600:
      return B9600;
    case 19200:
      return B19200;
    case 38400:
      return B38400;
    case 57600:
      return B57600;
    case 115200:
      return B115200;
    case 230400:
      return B230400;
    case 460800:
      return B460800;
    case 921600:
      return B921600;
    default:
      return B0;
  }
}

bool IsPseudoTerminal(int descriptor) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0 || !S_ISCHR(status.st_mode)) return false;
  const unsigned device_major = major(status.st_rdev);
  return device_major == kBsdPtySlaveMajor ||
         (device_major >= kPtySlaveMajorFirst && device_major <= kPtySlaveMajorLast);
}

}  // namespace vyn::platform
