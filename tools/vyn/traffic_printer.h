// A receiver queue that prints the serial traffic the library publishes: one
// line per frame, "TX" or "RX", the time, and the traffic-monitor line of the
// command dump (or the bytes in hex for frames the dump does not render).
//
// A sender may name the reply it waits for (ExpectReply): the printer then
// notes when a received frame is that reply and calls the given function,
// on the printer's thread, so that the waiter can look (ReplyReceived).
// Lines go out through WriteOutputLine (output.h), which never blocks for
// long, so the library's queue keeps draining while nobody reads the output.
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "vyn/queue/message_queue.h"

namespace vyn::tool {

class TrafficPrinter : public CVYNMessageQueue {
 public:
  explicit TrafficPrinter(bool show_sent) : show_sent_(show_sent) {}

  uint32_t ReceivedFrames() const { return received_; }
  uint32_t SentFrames() const { return sent_; }

  // The reply to `request` (a frame built by the command set) is the next
  // received frame with the same start byte and the reply's id: for CCPU the
  // request id plus 0x4000, for MCPU the same id or a confirmation whose
  // first payload byte is the request id. `on_reply` must be cheap and must
  // not call back into the printer. Call before sending the request.
  void ExpectReply(const unsigned char* request, std::function<void()> on_reply);
  bool ReplyReceived() const { return reply_received_; }

 protected:
  int32_t ProcessMessage(CVYNMessage& message) override;

 private:
  void NoteReply(const unsigned char* frame);

  const bool show_sent_;
  std::atomic<uint32_t> received_{0};
  std::atomic<uint32_t> sent_{0};
  std::mutex expectation_mutex_;
  // The expectation; guarded by expectation_mutex_.
  bool expecting_ = false;
  unsigned char expected_request_[3] = {};  // start byte and command id
  std::function<void()> on_reply_;
  std::atomic<bool> reply_received_{false};
};

// True when `frame` is the reply to `request` in the sense of ExpectReply;
// reads the start byte and id of `request` only.
bool IsReplyTo(const unsigned char* request, const unsigned char* frame);

// The frame length that the frame's own header gives (0 for no frame).
size_t FrameLength(const unsigned char* frame);

}  // namespace vyn::tool
