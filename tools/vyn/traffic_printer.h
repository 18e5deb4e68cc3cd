// A receiver queue that prints the serial traffic the library publishes: one
// line per frame, "TX" or "RX", the time, and the traffic-monitor line of the
// command dump (or the bytes in hex for frames the dump does not render).
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <vector>

#include "vyn/queue/message_queue.h"

namespace vyn::tool {

class TrafficPrinter : public CVYNMessageQueue {
 public:
  explicit TrafficPrinter(bool show_sent) : show_sent_(show_sent) {}

  uint32_t ReceivedFrames() const { return received_; }
  uint32_t SentFrames() const { return sent_; }

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override;

 private:
  const bool show_sent_;
  std::atomic<uint32_t> received_{0};
  std::atomic<uint32_t> sent_{0};
};

// The frame length that the frame's own header gives (0 for no frame).
size_t FrameLength(const unsigned char* frame);

}  // namespace vyn::tool
