// What the simulated device has still to send, and the faults that the next
// frames will suffer on the way. Faults are armed ahead and spent by the
// next frame queued after arming (a reply or a notification, whichever comes
// first); several armed faults of one kind hit that many frames in turn.
//
// - drop a byte: the byte in the middle of the frame goes missing, so the
//   frame arrives one byte short;
// - corrupt a checksum: the header checksum, or the payload checksum (a CCPU
//   frame without payload has none; its header checksum is hit instead);
// - split: the frame goes out in two halves with a pause between them;
// - garbage: bytes that are neither start byte go out at once, before any
//   frame queued later; they are made block by block while they go out;
// - stall: nothing at all goes out until the time has passed; frames queue up
//   meanwhile and follow afterwards.
//
// Thread-safety: none; the simulator guards the queue with its own lock.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <random>
#include <vector>

namespace vyn::sim {

enum class FrameKind { kReply, kNotification, kGarbage };
enum class ChecksumKind { kHeader, kPayload };

class OutboundQueue {
 public:
  using Clock = std::chrono::steady_clock;

  // Queues a complete frame, after applying the armed faults to it.
  void PushFrame(std::vector<uint8_t> frame, FrameKind kind);
  void PushGarbage(size_t count);

  void ArmDropByte() { ++armed_drops_; }
  void ArmCorruptChecksum(ChecksumKind kind);
  void ArmSplit(std::chrono::milliseconds pause) { armed_splits_.push_back(pause); }
  void Stall(Clock::time_point until);
  // Undoes every fault not yet spent: a stall ends, garbage not yet written
  // is forgotten, armed faults are disarmed and the pauses of split frames
  // still queued are dropped.
  void CancelFaults();

  // The bytes that may be written at `now`: empty while paused or stalled,
  // with `resume_at` set to when to look again, or when nothing waits.
  const std::vector<uint8_t>* Ready(Clock::time_point now, Clock::time_point* resume_at);
  // Reports `count` bytes of Ready() written; when that finished a frame,
  // returns what the frame was.
  std::optional<FrameKind> Consume(size_t count);

  // Forgets every queued byte, as when the line is lost. Armed faults stay.
  void Clear();
  bool empty() const { return chunks_.empty(); }
  // What the bytes of Ready() belong to; only when not empty().
  FrameKind front_kind() const { return chunks_.front().kind; }
  size_t frames() const;
  // Faults applied to frames so far.
  uint64_t faults_applied() const { return faults_applied_; }

 private:
  struct Chunk {
    std::vector<uint8_t> bytes;
    std::chrono::milliseconds pause_before{0};
    FrameKind kind = FrameKind::kReply;
    bool ends_frame = true;
    // Garbage is made a block at a time as it goes out, so that a request
    // for millions of bytes neither takes long nor takes memory.
    size_t garbage_left = 0;
  };

  static constexpr size_t kGarbageBlock = 4096;
  void MakeGarbage(Chunk& chunk);

  std::deque<Chunk> chunks_;
  std::optional<Clock::time_point> first_release_;
  Clock::time_point stalled_until_{};
  unsigned armed_drops_ = 0;
  std::deque<ChecksumKind> armed_checksums_;
  std::deque<std::chrono::milliseconds> armed_splits_;
  uint64_t faults_applied_ = 0;
  std::minstd_rand garbage_generator_{20240611};
};

}  // namespace vyn::sim
