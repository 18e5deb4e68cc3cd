#include "sim/mcpu_responder.h"

#include "sim/frame_builder.h"
#include "sim/payload_builder.h"

namespace vyn::sim {
namespace {

constexpr uint8_t kBoardInfo = 0x56;
constexpr uint8_t kReadParamsExt = 0x21;
constexpr uint8_t kCalibrateEfo = 0x1B;
constexpr uint8_t kCalibrateZero = 0x1A;
constexpr uint8_t kWriteEncoderCalibration = 0x22;
constexpr uint8_t kChangeMotors = 0x45;
constexpr uint8_t kRealtimeData3 = 0x17;
constexpr uint8_t kConfirm = 0x43;

constexpr uint8_t kMotorsOn = 0x0B;
constexpr uint8_t kMotorsOff = 0x0C;

std::vector<uint8_t> Confirmation(uint8_t command) {
  return BuildMcpuFrame(kConfirm, PayloadBuilder().Byte(command).bytes());
}

}  // namespace

std::optional<std::vector<uint8_t>> McpuResponder::Answer(const ReceivedFrame& request) {
  switch (request.command) {
    case kBoardInfo:
      return BuildMcpuFrame(kBoardInfo, BoardInfo());
    case kReadParamsExt:
      // Asked for with or without a single zero byte of payload; the answer
      // is the same.
      return BuildMcpuFrame(kReadParamsExt, ParametersExtended());
    case kRealtimeData3:
      return BuildMcpuFrame(kRealtimeData3, RealtimeData());
    case kCalibrateZero:
      for (int i = 0; i < 3; ++i) state_.zero_offsets[i] = state_.axis_position[i];
      return Confirmation(kCalibrateZero);
    case kCalibrateEfo:
      // The field offset is measured relative to the calibrated zero.
      for (int i = 0; i < 3; ++i) {
        state_.efo_offsets[i] =
            static_cast<int16_t>(state_.axis_position[i] - state_.zero_offsets[i] + 40 * (i + 1));
      }
      return Confirmation(kCalibrateEfo);
    case kWriteEncoderCalibration:
      state_.calibration_stored = true;
      return Confirmation(kWriteEncoderCalibration);
    case kChangeMotors:
      return BuildMcpuFrame(kConfirm, ChangeMotors(request.payload));
    default:
      return std::nullopt;
  }
}

// 18 bytes: board kind and revision, the state byte at 3, the firmware
// version number at 7 and the board's serial number at 11.
std::vector<uint8_t> McpuResponder::BoardInfo() const {
  return PayloadBuilder()
      .Byte('M')
      .Byte(2)
      .Byte(0)
      .Byte(state_.McpuState())
      .Byte(3)  // axes
      .U16(0)
      .U32(state_.mcpu_version_number)
      .U32(240815)
      .PadTo(18)
      .bytes();
}

// 40 bytes: the controller settings first (gains, limits, rates), then the
// zero offsets of the three axes at 28 and their field offsets at 34.
std::vector<uint8_t> McpuResponder::ParametersExtended() const {
  PayloadBuilder out;
  out.U16(1200).U16(35).U16(400).U16(16384).U16(2000).U16(50).U16(1).U16(8);
  out.U32(57600).U32(1000);
  out.PadTo(28);
  for (int16_t zero : state_.zero_offsets) out.I16(zero);
  for (int16_t efo : state_.efo_offsets) out.I16(efo);
  return out.bytes();
}

// 63 bytes: the tick counter, the three axis positions (axis 1 at 14) and
// set-points, the state byte at 16, the loop counter at 52 and the motors
// flag at 57.
std::vector<uint8_t> McpuResponder::RealtimeData() const {
  PayloadBuilder out;
  out.U32(state_.ticks);
  out.PadTo(14);
  out.I16(state_.axis_position[0]);
  out.Byte(state_.McpuState());
  out.Byte(0);
  out.I16(state_.axis_position[1]).I16(state_.axis_position[2]);
  for (int16_t setpoint : state_.axis_setpoint) out.I16(setpoint);
  out.PadTo(52);
  out.U16(state_.loops_per_second);
  out.PadTo(57);
  out.Byte(state_.motors_on ? 1 : 0);
  out.PadTo(63);
  return out.bytes();
}

// Confirmed with the motors' state after the command: 1 on, 0 off. An
// unknown sub-command leaves them as they were.
std::vector<uint8_t> McpuResponder::ChangeMotors(const std::vector<uint8_t>& request) {
  if (!request.empty() && request[0] == kMotorsOn) state_.motors_on = true;
  if (!request.empty() && request[0] == kMotorsOff) state_.motors_on = false;
  return PayloadBuilder().Byte(kChangeMotors).Byte(state_.motors_on ? 1 : 0).bytes();
}

}  // namespace vyn::sim
