// The test's side of the simulated line: a plain termios client of the port
// path that reads frames by the test's own reading of their headers,
// independent of the simulator's code and of the library's receiver.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/resource.h>
#include <termios.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "tests/support/test_frames.h"

namespace vyn::test {

class TestPort {
 public:
  explicit TestPort(const std::string& path)
      : fd_(open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC)) {}
  ~TestPort() {
    if (fd_ >= 0) close(fd_);
  }
  TestPort(const TestPort&) = delete;
  TestPort& operator=(const TestPort&) = delete;

  bool is_open() const { return fd_ >= 0; }
  bool Send(const Bytes& bytes) {
    return write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }
  // Up to `count` bytes: what arrives until the line has been quiet for `quiet_ms`.
  Bytes Read(size_t count, int quiet_ms = 3000) {
    Bytes got(count);
    size_t size = 0;
    pollfd watched{fd_, POLLIN, 0};
    while (size < count && poll(&watched, 1, quiet_ms) > 0) {
      const ssize_t n = read(fd_, got.data() + size, count - size);
      if (n <= 0) break;
      size += static_cast<size_t>(n);
    }
    got.resize(size);
    return got;
  }
  // The next frame, as long as its header says; empty when none comes.
  Bytes ReadFrame() {
    Bytes frame = Read(4);
    if (frame.size() == 4 && frame[0] == 0x42) frame = Cat({frame, Read(3)});
    if (frame.size() < (frame.empty() || frame[0] == 0x42 ? 7u : 4u)) return {};
    return Cat({frame, Read(FrameLength(frame) - frame.size())});
  }
  Bytes Ask(const Bytes& request) { return Send(request) ? ReadFrame() : Bytes{}; }
  // True when the line reports a hang-up within `limit_ms` and reading it
  // gives end of input or EIO, as a port whose device is gone does.
  bool WaitForHangUp(int limit_ms) {
    pollfd watched{fd_, POLLIN, 0};
    if (poll(&watched, 1, limit_ms) <= 0 || (watched.revents & POLLHUP) == 0) return false;
    unsigned char byte;
    const ssize_t count = read(fd_, &byte, 1);
    return count == 0 || (count < 0 && errno == EIO);
  }

 private:
  int fd_;
};

// What the whole process has used so far, for telling a waiting thread from
// a spinning one on a machine with or without other load: a spinning thread
// uses CPU where it has a core to itself and is preempted where it has not,
// while a waiting one gives the CPU up itself.
struct ProcessUsage {
  ProcessUsage() {
    rusage used{};
    getrusage(RUSAGE_SELF, &used);
    cpu_seconds = static_cast<double>(used.ru_utime.tv_sec + used.ru_stime.tv_sec) +
                  static_cast<double>(used.ru_utime.tv_usec + used.ru_stime.tv_usec) * 1e-6;
    waits = used.ru_nvcsw;
    preemptions = used.ru_nivcsw;
  }
  double cpu_seconds;
  long waits;
  long preemptions;
};

}  // namespace vyn::test
