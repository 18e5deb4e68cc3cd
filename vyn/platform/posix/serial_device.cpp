#include "vyn/platform/serial_device.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "vyn/platform/posix/terminal_helpers.h"

namespace vyn::platform {
namespace {

std::string LinkTarget(const std::string& path) {
  char target[4096];
  const ssize_t length = readlink(path.c_str(), target, sizeof target);
  return length > 0 ? std::string(target, static_cast<size_t>(length)) : std::string();
}

}  // namespace

SerialOpenFailure ClassifyOpenFailure(SerialOpenStep step, int error) {
  switch (step) {
    case SerialOpenStep::kNone:
      return SerialOpenFailure::kNone;
    case SerialOpenStep::kOpen:
      switch (error) {
        case ENOENT:
        case ENODEV:
        case ENXIO:
        case ENOTDIR:
          return SerialOpenFailure::kMissing;
        case EACCES:
        case EPERM:
        case EROFS:
          return SerialOpenFailure::kPermission;
        case EBUSY:
          return SerialOpenFailure::kInUse;
        case EISDIR:
          return SerialOpenFailure::kNotSerial;
        default:
          return SerialOpenFailure::kOther;
      }
    case SerialOpenStep::kReadSettings:
    case SerialOpenStep::kWriteSettings:
      // The terminal calls are refused by everything that is not a terminal.
      return error == ENOTTY || error == EINVAL ? SerialOpenFailure::kNotSerial
                                                : SerialOpenFailure::kOther;
    case SerialOpenStep::kSetTimeouts:
      return SerialOpenFailure::kOther;
  }
  return SerialOpenFailure::kOther;
}

std::string SystemErrorText(int error) {
  char buffer[128];
  // The GNU strerror_r returns the text, which may or may not be in buffer.
  return strerror_r(error, buffer, sizeof buffer);
}

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

struct SerialDevice::SavedSettings {
  termios settings{};
};

SerialDevice::SerialDevice() = default;

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
  saved_ = std::make_unique<SavedSettings>(SavedSettings{settings});
  cfmakeraw(&settings);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSTOPB | PARENB | CRTSCTS | CSIZE);
  settings.c_cflag |= CS8 | CLOCAL | CREAD;
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | INPCK);
  // VMIN 1 with O_NONBLOCK: an empty line reads as EAGAIN, so that a read of
  // 0 bytes can only mean that the device has gone (VMIN 0 would read 0).
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  const speed_t speed = TerminalSpeedOf(baud);
  if (speed == B0 || cfsetispeed(&settings, speed) != 0 || cfsetospeed(&settings, speed) != 0 ||
      tcsetattr(descriptor_, TCSANOW, &settings) != 0) {
    return fail(SerialOpenStep::kWriteSettings, speed == B0 ? EINVAL : errno);
  }
  // DTR and RTS stay inactive; pseudo-terminals have no modem lines, so a
  // refusal here is no fault.
  int lines = TIOCM_DTR | TIOCM_RTS;
  ioctl(descriptor_, TIOCMBIC, &lines);

  // Reads never block: the receiving thread waits in poll() and takes what
  // each read delivers at once.
  const int flags = fcntl(descriptor_, F_GETFL);
  if (flags < 0 || fcntl(descriptor_, F_SETFL, flags | O_NONBLOCK) != 0) {
    return fail(SerialOpenStep::kSetTimeouts, errno);
  }
  // Stale input from before the open is dropped. Output is not flushed: on
  // a pseudo-terminal that would discard what an earlier open of ours wrote
  // and the other side has not read yet, frames already reported as sent.
  tcflush(descriptor_, TCIFLUSH);

  reached_ = Reached{};
  reached_.valid = true;
  reached_.path = path;
  reached_.pseudo_terminal = IsPseudoTerminal(descriptor_);
  struct stat link {};
  if (lstat(path.c_str(), &link) == 0 && S_ISLNK(link.st_mode)) {
    reached_.through_link = true;
    reached_.link_device = link.st_dev;
    reached_.link_inode = link.st_ino;
    reached_.link_changed = link.st_ctim;
    reached_.link_target = LinkTarget(path);
  }
  if (failed_step != nullptr) *failed_step = SerialOpenStep::kNone;
  if (error != nullptr) *error = 0;
  return true;
}

ReopenVerdict SerialDevice::CheckReopen(const std::string& path) const {
  if (!reached_.valid || path != reached_.path || !reached_.pseudo_terminal) {
    return ReopenVerdict::kReopen;
  }
  if (!reached_.through_link) return ReopenVerdict::kGoneForGood;
  struct stat link {};
  // No link (yet): the device behind it is unplugged; wait for a new one.
  if (lstat(path.c_str(), &link) != 0) return ReopenVerdict::kNotYet;
  // Somebody put something else under the name: it is theirs to choose.
  if (!S_ISLNK(link.st_mode)) return ReopenVerdict::kReopen;
  const bool same_link = link.st_dev == reached_.link_device &&
                         link.st_ino == reached_.link_inode &&
                         link.st_ctim.tv_sec == reached_.link_changed.tv_sec &&
                         link.st_ctim.tv_nsec == reached_.link_changed.tv_nsec &&
                         LinkTarget(path) == reached_.link_target;
  return same_link ? ReopenVerdict::kNotYet : ReopenVerdict::kReopen;
}

void SerialDevice::Close() {
  if (descriptor_ < 0) return;
  // The terminal is left as it was found: a port that is somebody's
  // terminal session gets its echo and line editing back, and others may
  // open it again. On a device that has gone these calls fail harmlessly.
  if (saved_) tcsetattr(descriptor_, TCSANOW, &saved_->settings);
  saved_.reset();
  ioctl(descriptor_, TIOCNXCL);
  close(descriptor_);  // also drops the advisory lock
  descriptor_ = -1;
}

}  // namespace vyn::platform
