#include "vyn/platform/posix/exclusive_terminal.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <cerrno>

namespace vyn::platform {
namespace {

// Device numbers of pseudo-terminal slaves: the Unix 98 ones (/dev/pts/N)
// and the old BSD ones (/dev/ttyp0 ...).
constexpr unsigned kPtySlaveMajorFirst = 136;
constexpr unsigned kPtySlaveMajorLast = 143;
constexpr unsigned kBsdPtySlaveMajor = 3;

bool Fail(int* error, int code) {
  if (error != nullptr) *error = code;
  return false;
}

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

bool ExclusiveTerminal::Open(const std::string& path, int* error) {
  Close();
  descriptor_.Reset(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC));
  if (!descriptor_.IsValid()) return Fail(error, errno);
  if (flock(descriptor_.get(), LOCK_EX | LOCK_NB) != 0) {
    const int code = errno == EWOULDBLOCK ? EBUSY : errno;
    descriptor_.Reset();
    return Fail(error, code);
  }
  ioctl(descriptor_.get(), TIOCEXCL);
  settings_error_ = tcgetattr(descriptor_.get(), &saved_) == 0 ? 0 : errno;
  if (error != nullptr) *error = 0;
  return true;
}

bool ExclusiveTerminal::SetRawLine(uint32_t baud, Parity parity, int* error) {
  if (!IsOpen()) return Fail(error, EBADF);
  if (settings_error_ != 0) return Fail(error, settings_error_);
  const int descriptor = descriptor_.get();
  const bool even = parity == Parity::kEven;
  termios settings{};
  if (tcgetattr(descriptor, &settings) != 0) return Fail(error, errno);
  cfmakeraw(&settings);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS);
  settings.c_cflag |= CS8 | CREAD | CLOCAL | (even ? PARENB : 0);
  settings.c_iflag &=
      ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | IGNPAR | PARMRK | ISTRIP | INPCK);
  if (even) settings.c_iflag |= INPCK;
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  const speed_t speed = TerminalSpeedOf(baud);
  if (speed == B0) return Fail(error, EINVAL);
  if (cfsetispeed(&settings, speed) != 0 || cfsetospeed(&settings, speed) != 0) {
    return Fail(error, errno);
  }
  if (tcsetattr(descriptor, TCSANOW, &settings) != 0) {
    // With parity the C library answers EINVAL when the kernel kept the
    // settings but for some line bits (a pseudo-terminal drops the parity):
    // the read-back below decides. Without parity nothing may be dropped.
    if (!even || errno != EINVAL) return Fail(error, errno);
  }
  if (even) {
    termios applied{};
    if (tcgetattr(descriptor, &applied) != 0) return Fail(error, errno);
    const tcflag_t line_bits = CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS;
    const bool parity_dropped = (applied.c_cflag & (CSIZE | PARENB)) == CS8 && IsPseudoTerminal();
    const bool line_kept = (applied.c_cflag & line_bits) == (settings.c_cflag & line_bits);
    if ((!line_kept && !parity_dropped) || (applied.c_cflag & (CSTOPB | CRTSCTS)) != 0 ||
        (applied.c_iflag & INPCK) == 0 || cfgetospeed(&applied) != speed) {
      return Fail(error, EINVAL);
    }
  }
  // Pseudo-terminals have no modem lines, so a refusal here is no fault.
  int lines = TIOCM_DTR | TIOCM_RTS;
  ioctl(descriptor, TIOCMBIC, &lines);
  if (error != nullptr) *error = 0;
  return true;
}

void ExclusiveTerminal::Close() {
  if (!IsOpen()) return;
  if (settings_error_ == 0) tcsetattr(descriptor_.get(), TCSANOW, &saved_);
  // Exclusive use belongs to the terminal, not to this descriptor: it
  // outlives the close unless lifted.
  ioctl(descriptor_.get(), TIOCNXCL);
  descriptor_.Reset();
}

bool ExclusiveTerminal::IsPseudoTerminal() const {
  struct stat status {};
  if (fstat(descriptor_.get(), &status) != 0 || !S_ISCHR(status.st_mode)) return false;
  const unsigned device_major = major(status.st_rdev);
  return device_major == kBsdPtySlaveMajor ||
         (device_major >= kPtySlaveMajorFirst && device_major <= kPtySlaveMajorLast);
}

}  // namespace vyn::platform
