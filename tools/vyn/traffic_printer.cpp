#include "tools/vyn/traffic_printer.h"

#include <cstdio>
#include <string>

#include "vyn/core/message_types.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/frame_format.h"

namespace vyn::tool {

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
  std::printf("%s %02u:%02u:%02u.%03u  %s\n", received ? "RX" : "TX", record->time.wHour,
              record->time.wMinute, record->time.wSecond, record->time.wMilliseconds, text.c_str());
  std::fflush(stdout);
  return 0;
}

}  // namespace vyn::tool
