// The frames the device sends unasked, built from its current state:
// - status (0x8002): entries of a property id and its value; the encoder
//   axes 5, 6 and 7 as signed 16-bit values, the I2C error counter 26 as
//   32 bits and the loops per second 27 as 16 bits;
// - trace (0xBFFE): the last positions of axis 1, signed 16-bit each;
// - debug (0xBFFF): a 16-bit source, a priority byte and a text without a
//   terminating zero.
// Notifications carry a sequence number of their own, counting 1..255.
//
// Ownership: reads a DeviceState it does not own.
// Thread-safety: none; called under the simulator's lock.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/device_state.h"

namespace vyn::sim {

class NotificationSource {
 public:
  explicit NotificationSource(const DeviceState& state) : state_(state) {}

  std::vector<uint8_t> Status();
  std::vector<uint8_t> Trace();
  std::vector<uint8_t> Debug();

  // Records the position of axis 1 for the next trace.
  void Sample();

 private:
  static constexpr int kTraceLength = 8;

  uint8_t NextSequence();

  const DeviceState& state_;
  uint8_t sequence_ = 0;
  int16_t trace_[kTraceLength] = {};
  int trace_next_ = 0;
};

}  // namespace vyn::sim
