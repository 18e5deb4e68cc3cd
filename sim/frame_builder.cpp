#include "sim/frame_builder.h"

#include <algorithm>

namespace vyn::sim {

uint8_t SumOfBytes(const uint8_t* data, size_t size) {
  unsigned sum = 0;
  for (size_t i = 0; i < size; ++i) sum += data[i];
  return static_cast<uint8_t>(sum);
}

// Frames are sized once and filled in place.
std::vector<uint8_t> BuildCcpuFrame(uint16_t command, uint8_t sequence,
                                    const std::vector<uint8_t>& payload) {
  const size_t length = std::min(payload.size(), kCcpuMaxPayload);
  std::vector<uint8_t> frame(length == 0 ? kCcpuHeaderSize : kCcpuHeaderSize + length + 1);
  frame[0] = kCcpuStart;
  frame[1] = static_cast<uint8_t>(command);
  frame[2] = static_cast<uint8_t>(command >> 8);
  frame[3] = static_cast<uint8_t>(length);
  frame[4] = static_cast<uint8_t>(length >> 8);
  frame[5] = sequence;
  frame[6] = SumOfBytes(&frame[1], 5);
  if (length > 0) {
    std::copy_n(payload.begin(), length, frame.begin() + kCcpuHeaderSize);
    frame.back() = SumOfBytes(payload.data(), length);
  }
  return frame;
}

std::vector<uint8_t> BuildMcpuFrame(uint8_t command, const std::vector<uint8_t>& payload) {
  const size_t length = std::min(payload.size(), kMcpuMaxPayload);
  std::vector<uint8_t> frame(kMcpuHeaderSize + length + 1);
  frame[0] = kMcpuStart;
  frame[1] = command;
  frame[2] = static_cast<uint8_t>(length);
  frame[3] = static_cast<uint8_t>(frame[1] + frame[2]);
  std::copy_n(payload.begin(), length, frame.begin() + kMcpuHeaderSize);
  frame.back() = SumOfBytes(payload.data(), length);
  return frame;
}

}  // namespace vyn::sim
