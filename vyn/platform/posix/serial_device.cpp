#include "vyn/platform/serial_device.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <memory>

#include "vyn/platform/posix/exclusive_terminal.h"

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

SerialDevice::SerialDevice() : terminal_(std::make_unique<ExclusiveTerminal>()) {}

SerialDevice::~SerialDevice() = default;

bool SerialDevice::IsOpen() const { return terminal_->IsOpen(); }

int SerialDevice::descriptor() const { return terminal_->descriptor(); }

bool SerialDevice::Open(const std::string& path, uint32_t baud, SerialOpenStep* failed_step,
                        int* error) {
  const auto fail = [&](SerialOpenStep step, int code) {
    if (failed_step != nullptr) *failed_step = step;
    if (error != nullptr) *error = code;
    Close();
    return false;
  };
  int code = 0;
  if (!terminal_->Open(path, &code)) return fail(SerialOpenStep::kOpen, code);
  if (terminal_->settings_error() != 0) {
    return fail(SerialOpenStep::kReadSettings, terminal_->settings_error());
  }
  if (!terminal_->SetRawLine(baud, Parity::kNone, &code)) {
    return fail(SerialOpenStep::kWriteSettings, code);
  }
  const int descriptor = terminal_->descriptor();
  // Reads never block: the receiving thread waits in poll() and takes what
  // each read delivers at once.
  const int flags = fcntl(descriptor, F_GETFL);
  if (flags < 0 || fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) != 0) {
    return fail(SerialOpenStep::kSetTimeouts, errno);
  }
  // Stale input from before the open is dropped. Output is not flushed: on
  // a pseudo-terminal that would discard what an earlier open of ours wrote
  // and the other side has not read yet, frames already reported as sent.
  tcflush(descriptor, TCIFLUSH);

  reached_ = Reached{};
  reached_.valid = true;
  reached_.path = path;
  reached_.pseudo_terminal = terminal_->IsPseudoTerminal();
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

void SerialDevice::Close() { terminal_->Close(); }

}  // namespace vyn::platform
