// Answers the requests of the control processor's framing (and, through it,
// of the ECPU and KCPU): every known request id gets its acknowledgement, id
// + 0x4000, carrying the request's sequence number. Requests the device does
// not know stay unanswered.
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

class CcpuResponder {
 public:
  explicit CcpuResponder(DeviceState& state) : state_(state) {}

  // The complete reply frame, or nothing for an unknown request id.
  std::optional<std::vector<uint8_t>> Answer(const ReceivedFrame& request);

 private:
  std::vector<uint8_t> DeviceInfo() const;
  std::vector<uint8_t> ProcessorInfo(uint16_t hardware_type, const std::string& version) const;
  std::vector<uint8_t> StatusCodes(const std::vector<uint8_t>& request) const;
  std::vector<uint8_t> Control(const std::vector<uint8_t>& request);
  std::vector<uint8_t> SetHardwareInfo(BoardIdentity& board, const std::vector<uint8_t>& request);
  std::vector<uint8_t> HardwareInfo(const BoardIdentity& board) const;
  std::vector<uint8_t> SetProductionInfo(BoardIdentity& board, const std::vector<uint8_t>& request);
  std::vector<uint8_t> ProductionInfo(const BoardIdentity& board) const;
  std::vector<uint8_t> SetPwmZeroOffset(const std::vector<uint8_t>& request);
  std::vector<uint8_t> SetPwmMinMax(const std::vector<uint8_t>& request);
  std::vector<uint8_t> PwmCalibration() const;
  std::vector<uint8_t> SetEncoderMinMax(const std::vector<uint8_t>& request);
  std::vector<uint8_t> EncoderCalibration() const;
  int channels() const { return state_.two_channel_input ? 2 : 1; }

  DeviceState& state_;
};

}  // namespace vyn::sim
