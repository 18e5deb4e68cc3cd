#include "sim/frame_builder.h"

#include <algorithm>

namespace vyn::sim {

uint8_t SumOfBytes(const uint8_t* data, size_t size) {
  unsigned sum = 0;
  for (size_t i = 0; i < size; ++i) sum += data[i];
  return static_cast<uint8_t>(sum);
}

std::vector<uint8_t> BuildCcpuFrame(uint16_t command, uint8_t sequence,
                                    const std::vector<uint8_t>& payload) {
  const size_t length = std::min(payload.size(), kCcpuMaxPayload);
  std::vector<uint8_t> frame = {kCcpuStart,
                                static_cast<uint8_t>(command),
                                static_cast<uint8_t>(command >> 8),
                                static_cast<uint8_t>(length),
                                static_cast<uint8_t>(length >> 8),
                                sequence,
                                0};
  frame[6] = SumOfBytes(&frame[1], 5);
  if (length > 0) {
    frame.insert(frame.end(), payload.begin(), payload.begin() + static_cast<long>(length));
    frame.push_back(SumOfBytes(payload.data(), length));
  }
  return frame;
}

std::vector<uint8_t> BuildMcpuFrame(uint8_t command, const std::vector<uint8_t>& payload) {
  const size_t length = std::min(payload.size(), kMcpuMaxPayload);
  std::vector<uint8_t> frame = {kMcpuStart, command, static_cast<uint8_t>(length), 0};
  frame[3] = static_cast<uint8_t>(frame[1] + frame[2]);
  frame.insert(frame.end(), payload.begin(), payload.begin() + static_cast<long>(length));
  frame.push_back(SumOfBytes(payload.data(), length));
  return frame;
}

}  // namespace vyn::sim
