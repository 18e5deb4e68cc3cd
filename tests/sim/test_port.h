// The test's side of the simulated line: a plain termios client of the port
// path and the test's own reading of the two frame layouts, independent of
// the simulator's code.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <termios.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace vyn::test {

using Bytes = std::vector<uint8_t>;

inline uint8_t Sum(const Bytes& bytes, size_t from, size_t count) {
  unsigned sum = 0;
  for (size_t i = from; i < from + count; ++i) sum += bytes.at(i);
  return static_cast<uint8_t>(sum);
}

// A CCPU request with sequence number 0x21 and both checksums.
inline Bytes Ccpu(uint16_t id, const Bytes& payload = {}) {
  Bytes frame = {0x42,
                 static_cast<uint8_t>(id),
                 static_cast<uint8_t>(id >> 8),
                 static_cast<uint8_t>(payload.size()),
                 static_cast<uint8_t>(payload.size() >> 8),
                 0x21};
  frame.push_back(Sum(frame, 1, 5));
  if (!payload.empty()) {
    frame.insert(frame.end(), payload.begin(), payload.end());
    frame.push_back(Sum(payload, 0, payload.size()));
  }
  return frame;
}

inline Bytes Mcpu(uint8_t id, const Bytes& payload = {}) {
  Bytes frame;
  frame.reserve(payload.size() + 5);
  frame.push_back(0x3E);
  frame.push_back(id);
  frame.push_back(static_cast<uint8_t>(payload.size()));
  frame.push_back(static_cast<uint8_t>(id + payload.size()));
  frame.insert(frame.end(), payload.begin(), payload.end());
  frame.push_back(Sum(payload, 0, payload.size()));
  return frame;
}

// Facts about a received frame, read the way a receiver of this line does.
struct FrameView {
  explicit FrameView(const Bytes& frame) : bytes(frame) {}
  bool ccpu() const { return bytes.at(0) == 0x42; }
  size_t header() const { return ccpu() ? 7 : 4; }
  unsigned id() const { return ccpu() ? bytes.at(1) | bytes.at(2) << 8 : bytes.at(1); }
  size_t n() const { return ccpu() ? bytes.at(3) | bytes.at(4) << 8 : bytes.at(2); }
  size_t length() const { return ccpu() && n() == 0 ? 7 : header() + n() + 1; }
  bool header_ok() const {
    return ccpu() ? Sum(bytes, 1, 5) == bytes.at(6) : Sum(bytes, 1, 2) == bytes.at(3);
  }
  bool payload_ok() const {
    return (ccpu() && n() == 0) || Sum(bytes, header(), n()) == bytes.at(header() + n());
  }
  Bytes payload() const {
    return Bytes(bytes.begin() + static_cast<long>(header()),
                 bytes.begin() + static_cast<long>(header() + n()));
  }
  const Bytes& bytes;
};

class TestPort {
 public:
  using Clock = std::chrono::steady_clock;

  explicit TestPort(const std::string& path) {
    fd_ = open(path.c_str(), O_RDWR | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    if (fd_ < 0) return;
    termios settings{};
    tcgetattr(fd_, &settings);
    cfmakeraw(&settings);
    cfsetspeed(&settings, B57600);
    tcsetattr(fd_, TCSANOW, &settings);
  }
  ~TestPort() {
    if (fd_ >= 0) close(fd_);
  }
  TestPort(const TestPort&) = delete;
  TestPort& operator=(const TestPort&) = delete;

  bool is_open() const { return fd_ >= 0; }

  bool Send(const Bytes& bytes) {
    return write(fd_, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
  }

  // Everything that arrives until the line has been quiet for `quiet_ms`,
  // or until `limit_ms` have passed.
  Bytes ReadUntilQuiet(int quiet_ms, int limit_ms = 5000) {
    Bytes got;
    const auto end = Clock::now() + std::chrono::milliseconds(limit_ms);
    while (Clock::now() < end && WaitReadable(quiet_ms)) {
      uint8_t buffer[512];
      const ssize_t count = read(fd_, buffer, sizeof buffer);
      if (count <= 0) break;
      got.insert(got.end(), buffer, buffer + count);
    }
    return got;
  }

  // A burst: waits up to `first_limit_ms` for its first byte, then reads
  // until `quiet_ms` pass without one.
  Bytes ReadBurst(int quiet_ms, int first_limit_ms = 3000) {
    if (!WaitReadable(first_limit_ms)) return {};
    return ReadUntilQuiet(quiet_ms);
  }

  // Up to `count` bytes, as many as arrive within `limit_ms`.
  Bytes ReadCount(size_t count, int limit_ms = 3000) {
    Bytes got;
    const auto end = Clock::now() + std::chrono::milliseconds(limit_ms);
    while (got.size() < count) {
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
      if (left.count() <= 0 || !WaitReadable(static_cast<int>(left.count()))) break;
      uint8_t buffer[512];
      const ssize_t read_count = read(fd_, buffer, std::min(sizeof buffer, count - got.size()));
      if (read_count <= 0) break;
      got.insert(got.end(), buffer, buffer + read_count);
    }
    return got;
  }

  // The next complete frame by its header's length, or empty after `limit_ms`.
  Bytes ReadFrame(int limit_ms = 3000) {
    const auto end = Clock::now() + std::chrono::milliseconds(limit_ms);
    for (;;) {
      while (!pending_.empty() && pending_[0] != 0x42 && pending_[0] != 0x3E) {
        pending_.erase(pending_.begin());
      }
      if (pending_.size() >= 7 || (pending_.size() >= 4 && pending_[0] == 0x3E)) {
        const auto length = static_cast<long>(FrameView(pending_).length());
        if (static_cast<long>(pending_.size()) >= length) {
          Bytes frame(pending_.begin(), pending_.begin() + length);
          pending_.erase(pending_.begin(), pending_.begin() + length);
          return frame;
        }
      }
      const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(end - Clock::now());
      if (left.count() <= 0 || !WaitReadable(static_cast<int>(left.count()))) return {};
      uint8_t buffer[512];
      const ssize_t count = read(fd_, buffer, sizeof buffer);
      if (count <= 0) return {};
      pending_.insert(pending_.end(), buffer, buffer + count);
    }
  }

  // Sends a request and reads the next frame.
  Bytes Ask(const Bytes& request) { return Send(request) ? ReadFrame() : Bytes{}; }

  // True when the line reports a hang-up within `limit_ms` and reading it
  // gives end of input or EIO, as a port whose device is gone does.
  bool WaitForHangUp(int limit_ms) {
    pollfd watched{fd_, POLLIN, 0};
    if (poll(&watched, 1, limit_ms) <= 0 || (watched.revents & POLLHUP) == 0) return false;
    uint8_t byte;
    const ssize_t count = read(fd_, &byte, 1);
    return count == 0 || (count < 0 && errno == EIO);
  }

 private:
  bool WaitReadable(int timeout_ms) {
    pollfd watched{fd_, POLLIN, 0};
    return poll(&watched, 1, timeout_ms) > 0 && (watched.revents & POLLIN) != 0;
  }

  int fd_ = -1;
  Bytes pending_;
};

}  // namespace vyn::test
