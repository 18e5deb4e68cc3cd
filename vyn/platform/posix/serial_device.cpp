#include "vyn/platform/serial_device.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>

namespace vyn::platform {
namespace {

speed_t SpeedOf(uint32_t baud) {
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

}  // namespace

std::string SerialDevicePath(const std::string& port_name) {
  if (port_name.find('/') != std::string::npos) return port_name;
  if (port_name.size() > 3 && port_name.compare(0, 3, "COM") == 0) {
    char* end = nullptr;
    const long number = std::strtol(port_name.c_str() + 3, &end, 10);
    if (end != nullptr && *end == '\0' && number >= 1) {
      return "/dev/ttyS" + std::to_string(number - 1);
    }
  }
  return "/dev/" + port_name;
}

SerialDevice::~SerialDevice() { Close(); }

bool SerialDevice::Open(const std::string& path, uint32_t baud, SerialOpenStep* failed_step,
                        int* error) {
  Close();
  const auto fail = [&](SerialOpenStep step, int code) {
    if (failed_step != nullptr) *failed_step = step;
    if (error != nullptr) *error = code;
    Close();
    return false;
  };
  descriptor_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor_ < 0) return fail(SerialOpenStep::kOpen, errno);
  // The advisory lock keeps out every cooperating opener, root included;
  // TIOCEXCL adds the kernel's refusal for other ones.
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) {
    return fail(SerialOpenStep::kOpen, errno == EWOULDBLOCK ? EBUSY : errno);
  }
  ioctl(descriptor_, TIOCEXCL);

  termios settings{};
  if (tcgetattr(descriptor_, &settings) != 0) return fail(SerialOpenStep::kReadSettings, errno);
  cfmakeraw(&settings);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CRTSCTS | CSIZE);
  settings.c_cflag |= CS8 | CLOCAL | CREAD;
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | INPCK);
  // VMIN 1 with O_NONBLOCK: an empty line reads as EAGAIN, so that a read of
  // 0 bytes can only mean that the device has gone (VMIN 0 would read 0).
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  const speed_t speed = SpeedOf(baud);
  if (speed == B0 || cfsetispeed(&settings, speed) != 0 || cfsetospeed(&settings, speed) != 0 ||
      tcsetattr(descriptor_, TCSANOW, &settings) != 0) {
    return fail(SerialOpenStep::kWriteSettings, speed == B0 ? EINVAL : errno);
  }
  // DTR and RTS stay inactive; pseudo-terminals have no modem lines, so a
  // refusal here is no fault.
  int lines = TIOCM_DTR | TIOCM_RTS;
  ioctl(descriptor_, TIOCMBIC, &lines);

  // Reads never block: the receiving thread waits in poll() and completes a
  // read after a quiet interval itself.
  const int flags = fcntl(descriptor_, F_GETFL);
  if (flags < 0 || fcntl(descriptor_, F_SETFL, flags | O_NONBLOCK) != 0) {
    return fail(SerialOpenStep::kSetTimeouts, errno);
  }
  tcflush(descriptor_, TCIOFLUSH);
  if (failed_step != nullptr) *failed_step = SerialOpenStep::kNone;
  if (error != nullptr) *error = 0;
  return true;
}

void SerialDevice::Close() {
  if (descriptor_ < 0) return;
  close(descriptor_);  // also drops the advisory lock
  descriptor_ = -1;
}

}  // namespace vyn::platform
