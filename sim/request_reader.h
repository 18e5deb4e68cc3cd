// The device's receiver: finds request frames of both layouts (see
// frame_builder.h) in the bytes arriving from the line, checks both
// checksums and hands over the good frames. Like the real firmware it
// listens for both start bytes at once and drops a bad frame silently; the
// caller only counts it. After a bad frame the search for a start byte goes
// on from the byte after the rejected frame's start, so a good frame that
// began inside the bad one is still found.
//
// Thread-safety: none; the simulator's thread owns the reader.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

namespace vyn::sim {

struct ReceivedFrame {
  bool mcpu = false;     // '>' layout; otherwise 'B'
  uint16_t command = 0;  // 16-bit CCPU id or 8-bit MCPU id
  uint8_t sequence = 0;  // CCPU only
  std::vector<uint8_t> payload;
};

class RequestReader {
 public:
  using Clock = std::chrono::steady_clock;

  // A frame whose next byte does not come within this time is given up:
  // the sender has stopped in the middle of it.
  static constexpr std::chrono::milliseconds kPartialFrameTimeout{2000};

  // Feeds bytes that arrived at `now`; complete good frames are appended to
  // `frames` in order.
  void Feed(const uint8_t* data, size_t size, Clock::time_point now,
            std::vector<ReceivedFrame>* frames);
  // Drops a partial frame whose last byte is older than the time-out.
  void DropStaleFrame(Clock::time_point now);
  // When DropStaleFrame next has work, if a frame is pending.
  bool StaleDeadline(Clock::time_point* deadline) const;
  // Forgets a partial frame, as after the line was lost.
  void Reset();

  // Frames with a wrong header or payload checksum, or a length no request has.
  uint64_t bad_frames() const { return bad_frames_; }
  // Bytes outside any frame (not a start byte while waiting for one).
  uint64_t stray_bytes() const { return stray_bytes_; }
  // Partial frames given up after the time-out.
  uint64_t stale_frames() const { return stale_frames_; }

 private:
  // Takes one byte; true when it completed a good frame (moved to `frames`).
  void Step(uint8_t byte, std::vector<ReceivedFrame>* frames);
  void Reject();
  void Deliver(std::vector<ReceivedFrame>* frames);

  std::vector<uint8_t> frame_;
  size_t expected_length_ = 0;   // 0 until the header has been checked
  std::deque<uint8_t> pending_;  // bytes still to look at, re-fed ones first
  Clock::time_point last_byte_{};
  uint64_t bad_frames_ = 0;
  uint64_t stray_bytes_ = 0;
  uint64_t stale_frames_ = 0;
};

}  // namespace vyn::sim
