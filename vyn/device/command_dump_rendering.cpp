// The rendering overrides of CVYNCommandDump: each runs the parser of
// CVYNCommandSet and writes the line with the reply's format.
#include <cstdio>
#include <cstring>

#include "vyn/core/status.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/internal/frame_payload.h"

using vyn::LoadLittleEndian16;
using vyn::device::McpuPayload;
using vyn::device::Payload;

namespace {

// List pieces are formatted into a scratch text of this size.
constexpr size_t kPieceSize = 64;

const char* ConfirmedCommandName(unsigned char command) {
  switch (command) {
    case MCPU_CMD_ID_CALIBRATE_ZERO:
      return "MCPU_CMD_ID_CALIBRATE_ZERO";
    case MCPU_CMD_ID_CALIBRATE_EFO:
      return "MCPU_CMD_ID_CALIBRATE_EFO";
    case MCPU_CMD_ID_WRITE_ENCODER_CALIBRATION:
      return "MCPU_CMD_ID_WRITE_ENCODER_CALIBRATION";
    case MCPU_CMD_ID_CHANGE_MOTORS:
      return "MCPU_CMD_ID_CHANGE_MOTORS";
    default:
      return nullptr;
  }
}

}  // namespace

int32_t CVYNCommandDump::ProcessAckGetDeviceInfo(
    unsigned char* frame, unsigned char* protocol_version, uint16_t* hardware_type,
    std::string* hardware_version, std::string* serial_number, std::string* mcpu_version,
    std::string* ecpu_version, std::string* ccpu_version, std::string* kcpu_version,
    std::string* lcpu_version, unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckGetDeviceInfo(
      frame, protocol_version, hardware_type, hardware_version, serial_number, mcpu_version,
      ecpu_version, ccpu_version, kcpu_version, lcpu_version, size);
  Format(
      "CCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; %i; protocol version; 0x%02X; hardware "
      "type; 0x%04X; hardware version; %s; serial number; %s; MCPU version; %s; ECPU version; %s; "
      "CCPU version; %s; KCPU version; %s; LCPU version; %s",
      result, *protocol_version, *hardware_type, hardware_version->c_str(), serial_number->c_str(),
      mcpu_version->c_str(), ecpu_version->c_str(), ccpu_version->c_str(), kcpu_version->c_str(),
      lcpu_version->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckDumpSettings(unsigned char* frame, unsigned char* status) {
  const int32_t result = CVYNCommandSet::ProcessAckDumpSettings(frame, status);
  Format("CCPU_CMD_ID_ACK_DUMP_SETTINGS; internal status; %i; status; %i", result, *status);
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetECPUInfo(unsigned char* frame,
                                               unsigned char* protocol_version,
                                               uint16_t* hardware_type, std::string* version,
                                               unsigned char size) {
  const int32_t result =
      CVYNCommandSet::ProcessAckGetECPUInfo(frame, protocol_version, hardware_type, version, size);
  Format(
      "ECPU_CMD_ID_REQ_GET_ECPU_INFO; internal status; %i; protocol version; 0x%02X; hardware "
      "type; 0x%04X; ECPU version; %s",
      result, *protocol_version, *hardware_type, version->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetKCPUInfo(unsigned char* frame,
                                               unsigned char* protocol_version,
                                               uint16_t* hardware_type, std::string* version,
                                               unsigned char size) {
  const int32_t result =
      CVYNCommandSet::ProcessAckGetKCPUInfo(frame, protocol_version, hardware_type, version, size);
  Format(
      "KCPU_CMD_ID_REQ_GET_KCPU_INFO; internal status; %i; protocol version; 0x%02X; hardware "
      "type; 0x%04X; KCPU version; %s",
      result, *protocol_version, *hardware_type, version->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckSetECPUPWMZeroOffset(unsigned char* frame, unsigned char* status,
                                                        float* zero_offset_1, float* zero_offset_2,
                                                        unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckSetECPUPWMZeroOffset(
      frame, status, zero_offset_1, zero_offset_2, size);
  if (HasTwoChannels()) {
    Format(
        "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Joystick; internal status; %i; Zero Offset_1: "
        "%0.01f; Zero Offset_2: %0.01f",
        result, static_cast<double>(*zero_offset_1), static_cast<double>(*zero_offset_2));
  } else {
    Format(
        "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Rocker; internal status; %i; Zero Offset: "
        "%0.01f",
        result, static_cast<double>(*zero_offset_1));
  }
  return result;
}

int32_t CVYNCommandDump::ProcessAckSetECPUPWMMinMax(unsigned char* frame, unsigned char* status,
                                                    float* duty_cycle_min_1,
                                                    float* duty_cycle_max_1,
                                                    float* duty_cycle_min_2,
                                                    float* duty_cycle_max_2, unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckSetECPUPWMMinMax(
      frame, status, duty_cycle_min_1, duty_cycle_max_1, duty_cycle_min_2, duty_cycle_max_2, size);
  if (HasTwoChannels()) {
    Format(
        "ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX; Joystick; internal status; %i; DutyCycleMin_1: "
        "%0.01f; DutyCycleMax_1: %0.01f; DutyCycleMin_2: %0.01f; DutyCycleMax_2: %0.01f",
        result, static_cast<double>(*duty_cycle_min_1), static_cast<double>(*duty_cycle_max_1),
        static_cast<double>(*duty_cycle_min_2), static_cast<double>(*duty_cycle_max_2));
  } else {
    Format(
        "ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX; Rocker; internal status; %i; DutyCycleMin: "
        "%0.01f; DutyCycleMax: %0.01f",
        result, static_cast<double>(*duty_cycle_min_1), static_cast<double>(*duty_cycle_max_1));
  }
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetECPUPWMCalibration(
    unsigned char* frame, unsigned char* status, unsigned char* min_max_calibrated_1,
    unsigned char* zero_calibrated_1, float* duty_cycle_min_1, float* duty_cycle_max_1,
    float* duty_cycle_offset_1, unsigned char* min_max_calibrated_2,
    unsigned char* zero_calibrated_2, float* duty_cycle_min_2, float* duty_cycle_max_2,
    float* duty_cycle_offset_2, unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckGetECPUPWMCalibration(
      frame, status, min_max_calibrated_1, zero_calibrated_1, duty_cycle_min_1, duty_cycle_max_1,
      duty_cycle_offset_1, min_max_calibrated_2, zero_calibrated_2, duty_cycle_min_2,
      duty_cycle_max_2, duty_cycle_offset_2, size);
  if (HasTwoChannels()) {
    Format(
        "ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION; Joystick; internal status; %i; "
        "MinMaxCalibrated_1: %i; ZeroCalibrated_1: %i; DutyCycleMin_1: %0.01f; DutyCycleMax_1: "
        "%0.01f; DutyCycleOffset_1: %0.01f; \r\n MinMaxCalibrated_2: %i; ZeroCalibrated_2: %i; "
        "DutyCycleMin_2: %0.01f; DutyCycleMax_2: %0.01f; DutyCycleOffset_2: %0.01f",
        result, *min_max_calibrated_1, *zero_calibrated_1, static_cast<double>(*duty_cycle_min_1),
        static_cast<double>(*duty_cycle_max_1), static_cast<double>(*duty_cycle_offset_1),
        *min_max_calibrated_2, *zero_calibrated_2, static_cast<double>(*duty_cycle_min_2),
        static_cast<double>(*duty_cycle_max_2), static_cast<double>(*duty_cycle_offset_2));
  } else {
    Format(
        "ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION; Rocker; internal status; %i; "
        "MinMaxCalibrated: %i; ZeroCalibrated: %i; DutyCycleMin: %0.01f; DutyCycleMax: %0.01f; "
        "DutyCycleOffset: %0.01f",
        result, *min_max_calibrated_1, *zero_calibrated_1, static_cast<double>(*duty_cycle_min_1),
        static_cast<double>(*duty_cycle_max_1), static_cast<double>(*duty_cycle_offset_1));
  }
  return result;
}

int32_t CVYNCommandDump::ProcessAckSetECPUEncoderMinMax(unsigned char* frame, unsigned char* status,
                                                        uint32_t* encoder_min,
                                                        uint32_t* encoder_max, unsigned char size) {
  const int32_t result =
      CVYNCommandSet::ProcessAckSetECPUEncoderMinMax(frame, status, encoder_min, encoder_max, size);
  Format(
      "ECPU_CMD_ID_ACK_SET_ECPU_ENCODER_MIN_MAX; Wheel; internal status; %i; Encoder1_Min: %u; "
      "Encoder1_Max: %u",
      result, *encoder_min, *encoder_max);
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetECPUEncoderCalibration(
    unsigned char* frame, unsigned char* status, unsigned char* calibrated, uint32_t* encoder_min,
    uint32_t* encoder_max, unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckGetECPUEncoderCalibration(
      frame, status, calibrated, encoder_min, encoder_max, size);
  Format(
      "ECPU_CMD_ID_ACK_GET_ECPU_ENCODER_CALIBRATION; Wheel; internal status; %i; "
      "Encoder1_Calibrated: %i; Encoder1_Min: %u; Encoder1_Max: %u",
      result, *calibrated, *encoder_min, *encoder_max);
  return result;
}

int32_t CVYNCommandDump::RenderStatusList(const char* head, unsigned char* frame,
                                          unsigned char* count, unsigned char* status_codes) {
  // Both list acknowledgements share one parser; the slot decides the name.
  const int32_t result = CVYNCommandSet::ProcessAckGetStatus(frame, count, status_codes);
  Format("%s; internal status; %i; status count; %i", head, result, *count);
  char piece[kPieceSize];
  for (int i = 0; i < *count; ++i) {
    // A piece longer than its scratch text is cut there: a dump line has a
    // fixed budget per list entry.
    const int written = std::snprintf(piece, sizeof piece, "; status %i; %s", i + 1,
                                      GetStatusString(status_codes[i]));
    if (written < 0 || !AppendPiece(piece)) break;
  }
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetStatus(unsigned char* frame, unsigned char* count,
                                             unsigned char* status_codes) {
  return RenderStatusList("CCPU_CMD_ID_ACK_GET_STATUS", frame, count, status_codes);
}

int32_t CVYNCommandDump::ProcessAckControl(unsigned char* frame, unsigned char* count,
                                           unsigned char* status_codes) {
  return RenderStatusList("CCPU_CMD_ID_ACK_CONTROL", frame, count, status_codes);
}

int32_t CVYNCommandDump::ProcessAckSetHardwareInfo(unsigned char* frame, unsigned char* status) {
  const int32_t result = CVYNCommandSet::ProcessAckSetHardwareInfo(frame, status);
  Format("CCPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; %i; status; %i", result, *status);
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetHardwareInfo(unsigned char* frame, uint16_t* hardware_type,
                                                   std::string* hardware_version,
                                                   std::string* serial_number, unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckGetHardwareInfo(
      frame, hardware_type, hardware_version, serial_number, size);
  Format(
      "CCPU_CMD_ID_ACK_GET_HARDWARE_INFO; internal status; %i; hardware type; 0x%04X; hardware "
      "version; %s; serial number; %s",
      result, *hardware_type, hardware_version->c_str(), serial_number->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckSetECPUHardwareInfo(unsigned char* frame,
                                                       unsigned char* status) {
  const int32_t result = CVYNCommandSet::ProcessAckSetECPUHardwareInfo(frame, status);
  Format("ECPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; %i; status; %i", result, *status);
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetECPUHardwareInfo(unsigned char* frame,
                                                       uint16_t* hardware_type,
                                                       std::string* hardware_version,
                                                       std::string* serial_number,
                                                       unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckGetECPUHardwareInfo(
      frame, hardware_type, hardware_version, serial_number, size);
  Format(
      "ECPU_CMD_ID_ACK_GET_HARDWARE_INFO; internal status; %i; hardware type; 0x%04X; hardware "
      "version; %s; serial number; %s",
      result, *hardware_type, hardware_version->c_str(), serial_number->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckSetProductionInfo(unsigned char* frame, unsigned char* status) {
  const int32_t result = CVYNCommandSet::ProcessAckSetProductionInfo(frame, status);
  Format("CCPU_CMD_ID_ACK_SET_PRODUCTION_INFO; internal status; %i; status; %i", result, *status);
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetProductionInfo(unsigned char* frame,
                                                     std::string* production_date,
                                                     std::string* production_user,
                                                     unsigned char size) {
  const int32_t result =
      CVYNCommandSet::ProcessAckGetProductionInfo(frame, production_date, production_user, size);
  Format(
      "CCPU_CMD_ID_ACK_GET_PRODUCTION_INFO; internal status; %i; production date; %s; production "
      "user; %s",
      result, production_date->c_str(), production_user->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckSetECPUProductionInfo(unsigned char* frame,
                                                         unsigned char* status) {
  const int32_t result = CVYNCommandSet::ProcessAckSetECPUProductionInfo(frame, status);
  Format("ECPU_CMD_ID_ACK_SET_PRODUCTION_INFO; internal status; %i; status; %i", result, *status);
  return result;
}

int32_t CVYNCommandDump::ProcessAckGetECPUProductionInfo(unsigned char* frame,
                                                         std::string* production_date,
                                                         std::string* production_user,
                                                         unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckGetECPUProductionInfo(frame, production_date,
                                                                         production_user, size);
  Format(
      "ECPU_CMD_ID_ACK_GET_PRODUCTION_INFO; internal status; %i; production date; %s; production "
      "user; %s",
      result, production_date->c_str(), production_user->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessNotStatus(unsigned char* frame, unsigned char* count,
                                          unsigned char* property_ids, unsigned char* values) {
  const int32_t result = CVYNCommandSet::ProcessNotStatus(frame, count, property_ids, values);
  Format("CCPU_CMD_ID_NOT_STATUS; internal status; %i; property count; %i", result, *count);
  // The walk follows the parser's packing: each value takes the bytes the
  // notification carries for its id, and ids without a value take none.
  char piece[kPieceSize];
  size_t offset = 0;
  for (int i = 0; i < *count; ++i) {
    const unsigned char id = property_ids[i];
    const char* value_text = nullptr;
    if (StatusValueSize(id) > 0) {
      unsigned char size = 0;
      value_text = GetPropertyValue(id, values + offset, &size);
      offset += size;
    } else {
      // The text GetPropertyValue gives for an id it has no value for.
      std::snprintf(property_value_text_, sizeof property_value_text_, "%i - unknown property", id);
      value_text = property_value_text_;
    }
    const int written =
        std::snprintf(piece, sizeof piece, "; %s; %s", GetPropertyName(id), value_text);
    if (written < 0 || !AppendPiece(piece)) break;
  }
  return result;
}

int32_t CVYNCommandDump::ProcessNotTrace(unsigned char* frame, uint16_t* count, int16_t* values,
                                         uint16_t capacity) {
  return CVYNCommandSet::ProcessNotTrace(frame, count, values, capacity);
}

int32_t CVYNCommandDump::ProcessNotDebug(unsigned char* frame, uint16_t* source,
                                         unsigned char* priority, std::string* text,
                                         uint16_t size) {
  const int32_t result = CVYNCommandSet::ProcessNotDebug(frame, source, priority, text, size);
  Format("CCPU_CMD_ID_NOT_DEBUG; internal status; %i; source; 0x%04X; priority; 0x%02X; text; %s",
         result, *source, *priority, text->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckBoardInfo(unsigned char* frame, unsigned char* state,
                                             std::string* version, unsigned char size) {
  const int32_t result = CVYNCommandSet::ProcessAckBoardInfo(frame, state, version, size);
  Format(
      "MCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; %i; MCPU state; 0x%02X; MCPU "
      "version; %s;",
      result, *state, version->c_str());
  return result;
}

int32_t CVYNCommandDump::ProcessAckReadParamsExt(unsigned char* frame) {
  int16_t zero[3] = {};
  int16_t efo[3] = {};
  const int32_t result = CVYNCommandSet::ProcessAckReadParamsExt(frame, zero, efo);
  Format(
      "MCPU_CMD_ID_READ_ENCODER_CALIBRATION; internal status; %i; EFO; %i; %i; %i; zero; %i; %i; "
      "%i",
      result, efo[0], efo[1], efo[2], zero[0], zero[1], zero[2]);
  return result;
}

int32_t CVYNCommandDump::ProcessAckConfirm(unsigned char* frame) {
  const Payload payload = McpuPayload(frame);
  if (payload.length < 1 || payload.length > 3) return VYN_STATUS_NOT_IMPLEMENTED;
  const char* name = ConfirmedCommandName(payload.data[0]);
  if (name == nullptr) return VYN_STATUS_NOT_IMPLEMENTED;
  if (payload.length == 1) {
    Format("%s", name);
  } else if (payload.length == 2) {
    Format("%s; %i", name, payload.data[1]);
  } else {
    Format("%s; %i", name, LoadLittleEndian16(payload.data + 1));
  }
  return VYN_STATUS_SUCCESS;
}
