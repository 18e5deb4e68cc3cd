#include "sim/ccpu_responder.h"

#include "sim/frame_builder.h"
#include "sim/payload_builder.h"
#include "sim/payload_reader.h"

namespace vyn::sim {
namespace {

constexpr uint16_t kAcknowledgement = 0x4000;
// Texts longer than this do not fit the device's information records.
constexpr size_t kMaxTextLength = 254;

using Payload = std::vector<uint8_t>;

Payload StatusOnly(uint8_t status) { return PayloadBuilder().Byte(status).bytes(); }

// Two texts, each with its zero, filling the payload exactly.
bool ReadTwoTexts(PayloadReader& reader, std::string* first, std::string* second) {
  return reader.Text(first) && reader.Text(second) && reader.remaining() == 0;
}

}  // namespace

std::optional<std::vector<uint8_t>> CcpuResponder::Answer(const ReceivedFrame& request) {
  const Payload& in = request.payload;
  Payload out;
  switch (request.command) {
    case 0x0001:
      out = DeviceInfo();
      break;
    case 0x0002:
      out = StatusCodes(in);
      break;
    case 0x0003:
      out = StatusOnly(kStatusSuccess);
      break;
    case 0x0011:
      out = Control(in);
      break;
    case 0x0051:
      out = SetHardwareInfo(state_.ccpu, in);
      break;
    case 0x0052:
      out = HardwareInfo(state_.ccpu);
      break;
    case 0x0053:
      out = SetProductionInfo(state_.ccpu, in);
      break;
    case 0x0054:
      out = ProductionInfo(state_.ccpu);
      break;
    case 0x0A01:
      out = ProcessorInfo(state_.kcpu_hardware_type, state_.kcpu_version);
      break;
    case 0x0B01:
      out = ProcessorInfo(state_.ecpu.hardware_type, state_.ecpu_version);
      break;
    case 0x0B21:
      out = SetPwmZeroOffset(in);
      break;
    case 0x0B22:
      out = SetPwmMinMax(in);
      break;
    case 0x0B23:
      out = PwmCalibration();
      break;
    case 0x0B24:
      out = SetEncoderMinMax(in);
      break;
    case 0x0B25:
      out = EncoderCalibration();
      break;
    case 0x0B51:
      out = SetHardwareInfo(state_.ecpu, in);
      break;
    case 0x0B52:
      out = HardwareInfo(state_.ecpu);
      break;
    case 0x0B53:
      out = SetProductionInfo(state_.ecpu, in);
      break;
    case 0x0B54:
      out = ProductionInfo(state_.ecpu);
      break;
    default:
      return std::nullopt;
  }
  return BuildCcpuFrame(static_cast<uint16_t>(request.command + kAcknowledgement), request.sequence,
                        out);
}

std::vector<uint8_t> CcpuResponder::DeviceInfo() const {
  return PayloadBuilder()
      .Byte(state_.protocol_version)
      .U16(state_.ccpu.hardware_type)
      .Text(state_.ccpu.hardware_version)
      .Text(state_.ccpu.serial_number)
      .Text(state_.mcpu_version)
      .Text(state_.ecpu_version)
      .Text(state_.ccpu_version)
      .Text(state_.kcpu_version)
      .Text(state_.lcpu_version)
      .bytes();
}

std::vector<uint8_t> CcpuResponder::ProcessorInfo(uint16_t hardware_type,
                                                  const std::string& version) const {
  return PayloadBuilder().Byte(state_.protocol_version).U16(hardware_type).Text(version).bytes();
}

// One status code per (property id, update rate) entry; a stray last byte
// is an entry cut short.
std::vector<uint8_t> CcpuResponder::StatusCodes(const std::vector<uint8_t>& request) const {
  PayloadBuilder out;
  for (size_t i = 0; i + 1 < request.size(); i += 2) {
    const uint8_t property = request[i];
    const bool readable = IsEncoderAxis(property) || property == kPropertyI2cErrors ||
                          property == kPropertyLoopsPerSecond;
    out.Byte(readable ? kStatusSuccess : kStatusInvalidParameter);
  }
  if (request.size() % 2 != 0) out.Byte(kStatusInvalidLength);
  return out.bytes();
}

// Entries are a property id, followed by a 16-bit value for the axes and the
// firmware update. The counters cannot be set. An entry whose value is
// missing ends the list.
std::vector<uint8_t> CcpuResponder::Control(const std::vector<uint8_t>& request) {
  PayloadReader reader(request);
  PayloadBuilder out;
  uint8_t property = 0;
  while (reader.Byte(&property)) {
    uint16_t value = 0;
    const bool takes_value = IsEncoderAxis(property) || property == kPropertyUpdateFirmware;
    if (takes_value && !reader.U16(&value)) {
      out.Byte(kStatusInvalidLength);
      break;
    }
    if (IsEncoderAxis(property)) {
      state_.axis_setpoint[property - kPropertyEncoderAxis1] = static_cast<int16_t>(value);
    } else if (property == kPropertyUpdateFirmware) {
      // Accepted; there is no firmware to update behind this simulation.
    } else if (property == kPropertyAllMotors) {
      // Stop every axis where it is.
      for (int i = 0; i < 3; ++i) state_.axis_setpoint[i] = state_.axis_position[i];
    } else {
      out.Byte(kStatusInvalidParameter);
      continue;
    }
    out.Byte(kStatusSuccess);
  }
  return out.bytes();
}

std::vector<uint8_t> CcpuResponder::SetHardwareInfo(BoardIdentity& board,
                                                    const std::vector<uint8_t>& request) {
  PayloadReader reader(request);
  uint16_t type = 0;
  std::string version;
  std::string serial;
  if (!reader.U16(&type) || !ReadTwoTexts(reader, &version, &serial)) {
    return StatusOnly(kStatusInvalidLength);
  }
  if (version.size() > kMaxTextLength || serial.size() > kMaxTextLength) {
    return StatusOnly(kStatusInvalidParameter);
  }
  board.hardware_type = type;
  board.hardware_version = version;
  board.serial_number = serial;
  return StatusOnly(kStatusSuccess);
}

std::vector<uint8_t> CcpuResponder::HardwareInfo(const BoardIdentity& board) const {
  return PayloadBuilder()
      .U16(board.hardware_type)
      .Text(board.hardware_version)
      .Text(board.serial_number)
      .bytes();
}

std::vector<uint8_t> CcpuResponder::SetProductionInfo(BoardIdentity& board,
                                                      const std::vector<uint8_t>& request) {
  PayloadReader reader(request);
  std::string date;
  std::string user;
  if (!ReadTwoTexts(reader, &date, &user)) return StatusOnly(kStatusInvalidLength);
  if (date.size() > kMaxTextLength || user.size() > kMaxTextLength) {
    return StatusOnly(kStatusInvalidParameter);
  }
  board.production_date = date;
  board.production_user = user;
  return StatusOnly(kStatusSuccess);
}

std::vector<uint8_t> CcpuResponder::ProductionInfo(const BoardIdentity& board) const {
  return PayloadBuilder().Text(board.production_date).Text(board.production_user).bytes();
}

// Two raw 16-bit positions; 0x8000 is the middle, a duty cycle of 50 %. The
// reply reports the stored offset of every channel the input device has.
std::vector<uint8_t> CcpuResponder::SetPwmZeroOffset(const std::vector<uint8_t>& request) {
  uint8_t status = kStatusInvalidLength;
  if (request.size() == 4) {
    PayloadReader reader(request);
    for (PwmChannel& channel : state_.pwm) {
      uint16_t raw = 0;
      reader.U16(&raw);
      channel.zero_offset = static_cast<float>(raw) * 100.0f / 65536.0f;
      channel.zero_calibrated = true;
    }
    status = kStatusSuccess;
  }
  PayloadBuilder out;
  out.Byte(status);
  for (int i = 0; i < channels(); ++i) out.Float(state_.pwm[i].zero_offset);
  return out.bytes();
}

// Minimum and maximum duty cycle of both channels. All zero asks the device to
// keep what it measured itself; a minimum not below its maximum is refused.
std::vector<uint8_t> CcpuResponder::SetPwmMinMax(const std::vector<uint8_t>& request) {
  uint8_t status = kStatusInvalidLength;
  if (request.size() == 16) {
    PayloadReader reader(request);
    float values[4] = {};
    for (float& value : values) reader.Float(&value);
    const bool measure =
        values[0] == 0.0f && values[1] == 0.0f && values[2] == 0.0f && values[3] == 0.0f;
    status = kStatusSuccess;
    if (!measure && (values[0] >= values[1] || values[2] >= values[3])) {
      status = kStatusInvalidParameter;
    }
    for (int i = 0; i < 2 && status == kStatusSuccess; ++i) {
      if (!measure) {
        state_.pwm[i].duty_cycle_min = values[2 * i];
        state_.pwm[i].duty_cycle_max = values[2 * i + 1];
      }
      state_.pwm[i].min_max_calibrated = true;
    }
  }
  PayloadBuilder out;
  out.Byte(status);
  for (int i = 0; i < channels(); ++i) {
    out.Float(state_.pwm[i].duty_cycle_min).Float(state_.pwm[i].duty_cycle_max);
  }
  return out.bytes();
}

std::vector<uint8_t> CcpuResponder::PwmCalibration() const {
  PayloadBuilder out;
  out.Byte(kStatusSuccess);
  for (int i = 0; i < channels(); ++i) {
    const PwmChannel& channel = state_.pwm[i];
    out.Byte(channel.min_max_calibrated ? 1 : 0)
        .Byte(channel.zero_calibrated ? 1 : 0)
        .Float(channel.duty_cycle_min)
        .Float(channel.duty_cycle_max)
        .Float(channel.zero_offset);
  }
  return out.bytes();
}

// The wheel's encoder range; both zero asks the device to take the range it
// measured itself.
std::vector<uint8_t> CcpuResponder::SetEncoderMinMax(const std::vector<uint8_t>& request) {
  constexpr uint32_t kMeasuredMin = 120;
  constexpr uint32_t kMeasuredMax = 3980;
  uint8_t status = kStatusInvalidLength;
  if (request.size() == 8) {
    PayloadReader reader(request);
    uint32_t minimum = 0;
    uint32_t maximum = 0;
    reader.U32(&minimum);
    reader.U32(&maximum);
    if (minimum == 0 && maximum == 0) {
      minimum = kMeasuredMin;
      maximum = kMeasuredMax;
    }
    status = minimum < maximum ? kStatusSuccess : kStatusInvalidParameter;
    if (status == kStatusSuccess) {
      state_.encoder_min = minimum;
      state_.encoder_max = maximum;
      state_.encoder_calibrated = true;
    }
  }
  return PayloadBuilder().Byte(status).U32(state_.encoder_min).U32(state_.encoder_max).bytes();
}

std::vector<uint8_t> CcpuResponder::EncoderCalibration() const {
  return PayloadBuilder()
      .Byte(kStatusSuccess)
      .Byte(state_.encoder_calibrated ? 1 : 0)
      .U32(state_.encoder_min)
      .U32(state_.encoder_max)
      .bytes();
}

}  // namespace vyn::sim
