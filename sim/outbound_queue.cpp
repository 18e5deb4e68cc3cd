#include "sim/outbound_queue.h"

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
  std::vector<uint8_t> bytes;
  bytes.reserve(count);
  // No start byte among them, so a receiver throws each one away on its
  // own and none can begin a frame.
  while (bytes.size() < count) {
    const auto byte = static_cast<uint8_t>(garbage_generator_() & 0xFF);
    if (byte != kCcpuStart && byte != kMcpuStart) bytes.push_back(byte);
  }
  chunks_.push_back(Chunk{std::move(bytes), {}, FrameKind::kGarbage, true});
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
