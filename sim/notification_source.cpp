#include "sim/notification_source.h"

#include <cstdio>

#include "sim/frame_builder.h"
#include "sim/payload_builder.h"

namespace vyn::sim {
namespace {

constexpr uint16_t kStatusNotification = 0x8002;
constexpr uint16_t kTraceNotification = 0xBFFE;
constexpr uint16_t kDebugNotification = 0xBFFF;
constexpr uint16_t kDebugSourceControlLoop = 0x0101;
constexpr uint8_t kDebugPriorityInformation = 3;

}  // namespace

uint8_t NotificationSource::NextSequence() {
  sequence_ = static_cast<uint8_t>(sequence_ == 255 ? 1 : sequence_ + 1);
  return sequence_;
}

std::vector<uint8_t> NotificationSource::Status() {
  PayloadBuilder out;
  for (int i = 0; i < 3; ++i) {
    out.Byte(static_cast<uint8_t>(kPropertyEncoderAxis1 + i)).I16(state_.axis_position[i]);
  }
  out.Byte(kPropertyI2cErrors).U32(state_.i2c_errors);
  out.Byte(kPropertyLoopsPerSecond).U16(state_.loops_per_second);
  return BuildCcpuFrame(kStatusNotification, NextSequence(), out.bytes());
}

std::vector<uint8_t> NotificationSource::Trace() {
  PayloadBuilder out;
  // Oldest sample first.
  for (int i = 0; i < kTraceLength; ++i) out.I16(trace_[(trace_next_ + i) % kTraceLength]);
  return BuildCcpuFrame(kTraceNotification, NextSequence(), out.bytes());
}

std::vector<uint8_t> NotificationSource::Debug() {
  char text[64];
  std::snprintf(text, sizeof text, "loop %u: %u loops/s, motors %s", state_.ticks,
                state_.loops_per_second, state_.motors_on ? "on" : "off");
  PayloadBuilder out;
  out.U16(kDebugSourceControlLoop).Byte(kDebugPriorityInformation).Characters(text);
  return BuildCcpuFrame(kDebugNotification, NextSequence(), out.bytes());
}

void NotificationSource::Sample() {
  trace_[trace_next_] = state_.axis_position[0];
  trace_next_ = (trace_next_ + 1) % kTraceLength;
}

}  // namespace vyn::sim
