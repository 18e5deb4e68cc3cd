#include "tools/vyn/traffic_printer.h"

#include <algorithm>
#include <cstdio>
#include <string>

#include "tools/vyn/output.h"
#include "vyn/core/message_types.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/frame_format.h"

namespace vyn::tool {
namespace {

constexpr unsigned kCcpuReplyOffset = 0x4000;
constexpr unsigned char kMcpuConfirmation = 0x43;

}  // namespace

bool IsReplyTo(const unsigned char* request, const unsigned char* frame) {
  if (frame[0] != request[0]) return false;
  if (request[0] == CCPU_START_DELIMITER) {
    const unsigned request_id = request[1] | (request[2] << 8);
    const unsigned id = frame[1] | (frame[2] << 8);
    return id == request_id + kCcpuReplyOffset;
  }
  if (request[0] != MCPU_START_DELIMITER) return false;
  if (frame[1] == request[1]) return true;
  return frame[1] == kMcpuConfirmation && frame[2] >= 1 && frame[4] == request[1];
}

void TrafficPrinter::ExpectReply(const unsigned char* request, std::function<void()> on_reply) {
  std::lock_guard lock(expectation_mutex_);
  expecting_ = true;
  std::copy(request, request + sizeof expected_request_, expected_request_);
  on_reply_ = std::move(on_reply);
  reply_received_ = false;
}

size_t FrameLength(const unsigned char* frame) {
  if (frame[0] == CCPU_START_DELIMITER) {
    const size_t payload = frame[3] | (frame[4] << 8);
    return payload == 0 ? 7 : payload + 8;
  }
  if (frame[0] == MCPU_START_DELIMITER) return frame[2] + 5u;
  return 0;
}

int32_t TrafficPrinter::ProcessMessage(CVYNMessage& message) {
  const uint32_t type = message.GetMessageType();
  if ((type != MSG_SERIAL_FRAME_RECEIVED && type != MSG_SERIAL_FRAME_SENT) ||
      message.GetBufferSize() != static_cast<int32_t>(sizeof(_SERIAL_FRAME_RECORD))) {
    return 0;
  }
  const auto* record = reinterpret_cast<const _SERIAL_FRAME_RECORD*>(message.GetBuffer());
  const bool received = type == MSG_SERIAL_FRAME_RECEIVED;
  (received ? received_ : sent_)++;
  if (!received && !show_sent_) return 0;
  std::string text;
  CVYNCommandDump& dump = GetVYNCommandDump();
  dump.ClearCommandDump();
  if (received) dump.DumpAcknowledgeOrNotification(const_cast<unsigned char*>(record->frame));
  text = dump.GetCommandDump(nullptr, 0);
  if (text.empty()) {
    const size_t length = FrameLength(record->frame);
    char hex[4];
    for (size_t i = 0; i < length && i < 64; ++i) {
      std::snprintf(hex, sizeof hex, i == 0 ? "%02X" : " %02X", record->frame[i]);
      text += hex;
    }
    if (length > 64) text += " ...";
  }
  char stamp[32];
  std::snprintf(stamp, sizeof stamp, "%s %02u:%02u:%02u.%03u  ", received ? "RX" : "TX",
                record->time.wHour, record->time.wMinute, record->time.wSecond,
                record->time.wMilliseconds);
  WriteOutputLine(stamp + text);
  // After the line is out, so that a waiter woken by the reply finds it printed.
  if (received) NoteReply(record->frame);
  return 0;
}

void TrafficPrinter::NoteReply(const unsigned char* frame) {
  std::function<void()> notify;
  {
    std::lock_guard lock(expectation_mutex_);
    if (!expecting_) return;
    if (!IsReplyTo(expected_request_, frame)) return;
    expecting_ = false;
    reply_received_ = true;
    notify = on_reply_;
  }
  // Called outside the lock, as the header promises nothing else.
  if (notify) notify();
}

}  // namespace vyn::tool
