#include "sim/outbound_queue.h"

#include <algorithm>
#include <utility>

#include "sim/frame_builder.h"

namespace vyn::sim {

void OutboundQueue::ArmCorruptChecksum(ChecksumKind kind) { armed_checksums_.push_back(kind); }

void OutboundQueue::Stall(Clock::time_point until) {
  if (until > stalled_until_) stalled_until_ = until;
}

void OutboundQueue::PushFrame(std::vector<uint8_t> frame, FrameKind kind) {
  if (frame.empty()) return;
  if (!armed_checksums_.empty()) {
    const ChecksumKind which = armed_checksums_.front();
    armed_checksums_.pop_front();
    const bool ccpu = frame[0] == kCcpuStart;
    const bool has_payload_checksum = !ccpu || frame.size() > kCcpuHeaderSize;
    const size_t header_checksum = ccpu ? kCcpuHeaderSize - 1 : kMcpuHeaderSize - 1;
    const size_t position = which == ChecksumKind::kPayload && has_payload_checksum
                                ? frame.size() - 1
                                : header_checksum;
    frame[position] = static_cast<uint8_t>(frame[position] + 1);
    ++faults_applied_;
  }
  if (armed_drops_ > 0) {
    --armed_drops_;
    frame.erase(frame.begin() + static_cast<long>(frame.size() / 2));
    ++faults_applied_;
  }
  if (!armed_splits_.empty() && frame.size() >= 2) {
    const std::chrono::milliseconds pause = armed_splits_.front();
    armed_splits_.pop_front();
    const auto middle = frame.begin() + static_cast<long>(frame.size() / 2);
    chunks_.push_back(Chunk{std::vector<uint8_t>(frame.begin(), middle), {}, kind, false});
    chunks_.push_back(Chunk{std::vector<uint8_t>(middle, frame.end()), pause, kind, true});
    ++faults_applied_;
    return;
  }
  chunks_.push_back(Chunk{std::move(frame), {}, kind, true});
}

void OutboundQueue::PushGarbage(size_t count) {
  if (count == 0) return;
  chunks_.push_back(Chunk{{}, {}, FrameKind::kGarbage, true, count});
}

void OutboundQueue::MakeGarbage(Chunk& chunk) {
  const size_t count = std::min(chunk.garbage_left, kGarbageBlock);
  chunk.bytes.clear();
  chunk.bytes.reserve(count);
  // No start byte among them, so a receiver throws each one away on its
  // own and none can begin a frame.
  while (chunk.bytes.size() < count) {
    const auto byte = static_cast<uint8_t>(garbage_generator_() & 0xFF);
    if (byte != kCcpuStart && byte != kMcpuStart) chunk.bytes.push_back(byte);
  }
  chunk.garbage_left -= count;
}

void OutboundQueue::CancelFaults() {
  stalled_until_ = {};
  armed_drops_ = 0;
  armed_checksums_.clear();
  armed_splits_.clear();
  std::deque<Chunk> kept;
  for (size_t i = 0; i < chunks_.size(); ++i) {
    Chunk& chunk = chunks_[i];
    // Garbage partly written keeps its current block, so that the bytes
    // around it stay whole; the rest of it and any unstarted garbage go.
    if (chunk.kind == FrameKind::kGarbage && (i > 0 || chunk.bytes.empty())) continue;
    chunk.garbage_left = 0;
    chunk.pause_before = std::chrono::milliseconds(0);
    kept.push_back(std::move(chunk));
  }
  chunks_ = std::move(kept);
  first_release_.reset();
}

const std::vector<uint8_t>* OutboundQueue::Ready(Clock::time_point now,
                                                 Clock::time_point* resume_at) {
  if (chunks_.empty()) return nullptr;
  if (now < stalled_until_) {
    *resume_at = stalled_until_;
    return nullptr;
  }
  // A pause runs from the moment its chunk reaches the front, which is when
  // the chunk before it has been written.
  if (!first_release_) first_release_ = now + chunks_.front().pause_before;
  if (chunks_.front().bytes.empty() && chunks_.front().garbage_left > 0) {
    MakeGarbage(chunks_.front());
  }
  if (now < *first_release_) {
    *resume_at = *first_release_;
    return nullptr;
  }
  return &chunks_.front().bytes;
}

std::optional<FrameKind> OutboundQueue::Consume(size_t count) {
  if (chunks_.empty()) return std::nullopt;
  Chunk& first = chunks_.front();
  if (count < first.bytes.size()) {
    first.bytes.erase(first.bytes.begin(), first.bytes.begin() + static_cast<long>(count));
    return std::nullopt;
  }
  if (first.garbage_left > 0) {
    first.bytes.clear();  // the next block follows
    return std::nullopt;
  }
  const std::optional<FrameKind> finished =
      first.ends_frame ? std::optional<FrameKind>(first.kind) : std::nullopt;
  chunks_.pop_front();
  first_release_.reset();
  return finished;
}

void OutboundQueue::Clear() {
  chunks_.clear();
  first_release_.reset();
}

size_t OutboundQueue::frames() const {
  size_t count = 0;
  for (const Chunk& chunk : chunks_) count += chunk.ends_frame ? 1 : 0;
  return count;
}

}  // namespace vyn::sim
