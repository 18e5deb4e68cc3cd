#include "vyn/platform/boot_loader_port.h"

#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/file.h>
#include <sys/ioctl.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>

#include "vyn/platform/posix/terminal_helpers.h"

namespace vyn::platform {
namespace {

using Clock = std::chrono::steady_clock;

// How long `size` bytes take on a slow line, with room for a busy machine:
// 10 ms a byte (1200 baud) and two seconds more.
int64_t WriteTimeLimitMs(size_t size) { return 2000 + 10 * static_cast<int64_t>(size); }

}  // namespace

BootLoaderPort::BootLoaderPort() = default;

BootLoaderPort::~BootLoaderPort() {
  Close();
  if (cancel_descriptor_ >= 0) close(cancel_descriptor_);
}

bool BootLoaderPort::Open(const std::string& path, int* error) {
  Close();
  {
    MutexLock lock(&cancel_lock_);
    if (cancel_descriptor_ < 0) cancel_descriptor_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  }
  const auto fail = [&](int code) {
    if (error != nullptr) *error = code;
    Close();
    return false;
  };
  descriptor_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
  if (descriptor_ < 0) return fail(errno);
  // The advisory lock keeps out every cooperating opener, the serial driver
  // of this library included; TIOCEXCL adds the kernel's refusal for others.
  if (flock(descriptor_, LOCK_EX | LOCK_NB) != 0) return fail(errno == EWOULDBLOCK ? EBUSY : errno);
  ioctl(descriptor_, TIOCEXCL);
  read_timeout_ms_ = -1;
  write_failed_ = false;
  if (error != nullptr) *error = 0;
  return true;
}

bool BootLoaderPort::Configure(uint32_t baud, int* error) {
  const auto fail = [&](int code) {
    if (error != nullptr) *error = code;
    return false;
  };
  if (descriptor_ < 0) return fail(EBADF);
  termios settings{};
  if (tcgetattr(descriptor_, &settings) != 0) return fail(errno);
  cfmakeraw(&settings);
  settings.c_cflag &= ~static_cast<tcflag_t>(CSIZE | CSTOPB | PARODD | CRTSCTS);
  settings.c_cflag |= CS8 | PARENB | CREAD | CLOCAL;
  // Parity checking without marking: a damaged byte reads as 0, which the
  // protocol takes as a wrong reply at once instead of waiting for it.
  settings.c_iflag &= ~static_cast<tcflag_t>(IXON | IXOFF | IXANY | IGNPAR | PARMRK | ISTRIP);
  settings.c_iflag |= INPCK;
  // VMIN 1 with O_NONBLOCK: an empty line reads as EAGAIN, so a read of 0
  // bytes can only mean that the device has gone.
  settings.c_cc[VMIN] = 1;
  settings.c_cc[VTIME] = 0;
  const speed_t speed = TerminalSpeedOf(baud);
  if (speed == B0) return fail(EINVAL);
  if (cfsetispeed(&settings, speed) != 0 || cfsetospeed(&settings, speed) != 0) {
    return fail(errno);
  }
  // The C library answers EINVAL when the kernel kept the settings but for
  // some line bits (a pseudo-terminal drops the parity), and success when
  // any setting took: either way the read-back decides.
  if (tcsetattr(descriptor_, TCSANOW, &settings) != 0 && errno != EINVAL) return fail(errno);
  termios applied{};
  if (tcgetattr(descriptor_, &applied) != 0) return fail(errno);
  const tcflag_t line_bits = CSIZE | CSTOPB | PARENB | PARODD | CRTSCTS;
  const bool parity_dropped =
      (applied.c_cflag & (CSIZE | PARENB)) == CS8 && IsPseudoTerminal(descriptor_);
  const bool line_kept = (applied.c_cflag & line_bits) == (settings.c_cflag & line_bits);
  if ((!line_kept && !parity_dropped) || (applied.c_cflag & (CSTOPB | CRTSCTS)) != 0 ||
      (applied.c_iflag & INPCK) == 0 || cfgetospeed(&applied) != speed) {
    return fail(EINVAL);
  }
  // DTR and RTS inactive; pseudo-terminals have no modem lines.
  int lines = TIOCM_DTR | TIOCM_RTS;
  ioctl(descriptor_, TIOCMBIC, &lines);
  Flush();
  if (error != nullptr) *error = 0;
  return true;
}

void BootLoaderPort::SetReadTimeout(int64_t timeout_ms) { read_timeout_ms_ = timeout_ms; }

short BootLoaderPort::WaitFor(short events, int64_t timeout_ms) {
  pollfd watched[2] = {{descriptor_, events, 0}, {cancel_descriptor_, POLLIN, 0}};
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(timeout_ms);
  for (;;) {
    int wait_ms = -1;
    if (timeout_ms >= 0) {
      const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
      // poll() takes an int; a longer limit is waited for in pieces.
      wait_ms = static_cast<int>(std::max<int64_t>(0, std::min<int64_t>(left.count(), 1 << 30)));
    }
    const int ready = poll(watched, 2, wait_ms);
    if (ready < 0 && errno != EINTR) return POLLERR;
    if ((watched[1].revents & POLLIN) != 0 || IsCancelled()) return 0;
    if (ready > 0) return watched[0].revents;
    if (timeout_ms >= 0 && Clock::now() >= deadline) return 0;
  }
}

int BootLoaderPort::ReadByte() {
  if (descriptor_ < 0 || IsCancelled()) return -1;
  if (write_failed_) {
    write_failed_ = false;
    return -1;
  }
  const Clock::time_point start = Clock::now();
  for (;;) {
    uint8_t byte = 0;
    const ssize_t got = read(descriptor_, &byte, 1);
    if (got == 1) return byte;
    if (got < 0 && errno == EINTR) continue;
    // 0 bytes (VMIN 1, so no time-out) or an error: the device has gone.
    if (got == 0 || errno != EAGAIN) return -1;
    int64_t left = -1;
    if (read_timeout_ms_ >= 0) {
      const int64_t waited =
          std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
      left = read_timeout_ms_ - waited;
      if (left <= 0) return -1;
    }
    const short ready = WaitFor(POLLIN, left);
    if (ready == 0) return -1;
    // A hang-up may still leave bytes to read: the next read tells.
    if ((ready & POLLIN) == 0) {
      const ssize_t last = read(descriptor_, &byte, 1);
      return last == 1 ? byte : -1;
    }
  }
}

void BootLoaderPort::Write(const uint8_t* data, size_t size) {
  if (descriptor_ < 0 || IsCancelled()) {
    write_failed_ = true;
    return;
  }
  const Clock::time_point deadline =
      Clock::now() + std::chrono::milliseconds(WriteTimeLimitMs(size));
  size_t done = 0;
  while (done < size) {
    const ssize_t put = write(descriptor_, data + done, size - done);
    if (put > 0) {
      done += static_cast<size_t>(put);
      continue;
    }
    if (put < 0 && errno == EINTR) continue;
    if (put < 0 && errno != EAGAIN) break;
    const int64_t left =
        std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) break;
    const short ready = WaitFor(POLLOUT, left);
    if ((ready & POLLOUT) == 0) break;
  }
  if (done < size) write_failed_ = true;
}

void BootLoaderPort::Flush() {
  if (descriptor_ >= 0) tcflush(descriptor_, TCIOFLUSH);
}

bool BootLoaderPort::Pause(int milliseconds) {
  // A negative descriptor is ignored by poll, which then only sleeps.
  pollfd watched{cancel_descriptor_, POLLIN, 0};
  const Clock::time_point deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
  for (;;) {
    if (IsCancelled()) return false;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left.count() <= 0) return true;
    poll(&watched, 1, static_cast<int>(left.count()));
  }
}

void BootLoaderPort::Close() {
  if (descriptor_ < 0) return;
  // Exclusive mode belongs to the terminal, not to this descriptor: give it
  // back, so that the next program (this library's serial driver, say) can
  // open the device.
  ioctl(descriptor_, TIOCNXCL);
  close(descriptor_);  // also drops the advisory lock
  descriptor_ = -1;
  write_failed_ = false;
}

void BootLoaderPort::Cancel() {
  MutexLock lock(&cancel_lock_);
  cancelled_.store(true, std::memory_order_release);
  if (cancel_descriptor_ < 0) return;
  const uint64_t one = 1;
  while (write(cancel_descriptor_, &one, sizeof one) < 0 && errno == EINTR) {
  }
}

void BootLoaderPort::ResetCancel() {
  MutexLock lock(&cancel_lock_);
  cancelled_.store(false, std::memory_order_release);
  if (cancel_descriptor_ < 0) return;
  uint64_t count = 0;
  // Reading an eventfd takes its whole count back.
  while (read(cancel_descriptor_, &count, sizeof count) < 0 && errno == EINTR) {
  }
}

}  // namespace vyn::platform
