#include "sim/request_reader.h"

#include <utility>

#include "sim/frame_builder.h"

namespace vyn::sim {

void RequestReader::Feed(const uint8_t* data, size_t size, Clock::time_point now,
                         std::vector<ReceivedFrame>* frames) {
  if (size == 0) return;
  last_byte_ = now;
  pending_.insert(pending_.end(), data, data + size);
  while (!pending_.empty()) {
    const uint8_t byte = pending_.front();
    pending_.pop_front();
    Step(byte, frames);
  }
}

void RequestReader::Step(uint8_t byte, std::vector<ReceivedFrame>* frames) {
  if (frame_.empty()) {
    if (byte == kCcpuStart || byte == kMcpuStart) {
      frame_.push_back(byte);
    } else {
      ++stray_bytes_;
    }
    return;
  }
  frame_.push_back(byte);
  const size_t count = frame_.size();
  if (frame_[0] == kCcpuStart) {
    if (count == kCcpuHeaderSize) {
      if (SumOfBytes(&frame_[1], 5) != frame_[6]) return Reject();
      const size_t length = frame_[3] | static_cast<size_t>(frame_[4]) << 8;
      if (length > kCcpuMaxPayload) return Reject();
      expected_length_ = length == 0 ? kCcpuHeaderSize : kCcpuHeaderSize + length + 1;
    }
    if (expected_length_ == 0 || count < expected_length_) return;
    if (count > kCcpuHeaderSize &&
        SumOfBytes(&frame_[kCcpuHeaderSize], count - kCcpuHeaderSize - 1) != frame_.back()) {
      return Reject();
    }
  } else {
    if (count == kMcpuHeaderSize) {
      if (static_cast<uint8_t>(frame_[1] + frame_[2]) != frame_[3]) return Reject();
      expected_length_ = kMcpuHeaderSize + frame_[2] + 1;
    }
    if (expected_length_ == 0 || count < expected_length_) return;
    if (SumOfBytes(&frame_[kMcpuHeaderSize], count - kMcpuHeaderSize - 1) != frame_.back()) {
      return Reject();
    }
  }
  Deliver(frames);
}

void RequestReader::Reject() {
  ++bad_frames_;
  // Look again at everything after the rejected start byte.
  pending_.insert(pending_.begin(), frame_.begin() + 1, frame_.end());
  frame_.clear();
  expected_length_ = 0;
}

void RequestReader::Deliver(std::vector<ReceivedFrame>* frames) {
  ReceivedFrame received;
  if (frame_[0] == kCcpuStart) {
    received.command = static_cast<uint16_t>(frame_[1] | frame_[2] << 8);
    received.sequence = frame_[5];
    if (frame_.size() > kCcpuHeaderSize) {
      received.payload.assign(frame_.begin() + kCcpuHeaderSize, frame_.end() - 1);
    }
  } else {
    received.mcpu = true;
    received.command = frame_[1];
    received.payload.assign(frame_.begin() + kMcpuHeaderSize, frame_.end() - 1);
  }
  frames->push_back(std::move(received));
  frame_.clear();
  expected_length_ = 0;
}

void RequestReader::DropStaleFrame(Clock::time_point now) {
  if (frame_.empty() || now - last_byte_ <= kPartialFrameTimeout) return;
  ++stale_frames_;
  Reset();
}

bool RequestReader::StaleDeadline(Clock::time_point* deadline) const {
  if (frame_.empty()) return false;
  *deadline = last_byte_ + kPartialFrameTimeout + std::chrono::milliseconds(1);
  return true;
}

void RequestReader::Reset() {
  frame_.clear();
  expected_length_ = 0;
}

}  // namespace vyn::sim
