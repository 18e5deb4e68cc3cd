// Answers the requests of the motor processor's framing: board information
// and the extended parameters under their own id, the real-time data record,
// and a confirmation frame (id 0x43, first payload byte = the confirmed id)
// for the calibration and motor commands. Unknown ids stay unanswered.
//
// Ownership: works on a DeviceState it does not own.
// Thread-safety: none; called under the simulator's lock.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "sim/device_state.h"
#include "sim/request_reader.h"

namespace vyn::sim {

class McpuResponder {
 public:
  explicit McpuResponder(DeviceState& state) : state_(state) {}

  // The complete reply frame, or nothing for an unknown request id.
  std::optional<std::vector<uint8_t>> Answer(const ReceivedFrame& request);

 private:
  std::vector<uint8_t> BoardInfo() const;
  std::vector<uint8_t> ParametersExtended() const;
  std::vector<uint8_t> RealtimeData() const;
  std::vector<uint8_t> ChangeMotors(const std::vector<uint8_t>& request);

  DeviceState& state_;
};

}  // namespace vyn::sim
