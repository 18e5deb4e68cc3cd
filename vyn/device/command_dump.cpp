#include "vyn/device/command_dump.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "vyn/core/internal/frame_bytes.h"
#include "vyn/core/status.h"

using vyn::LoadLittleEndian16;
using vyn::LoadLittleEndian32;

namespace {

// Text sizes the dispatcher hands to the parsers: 32 bytes per text, the
// whole line for a debug text, 32 values of a trace.
constexpr unsigned char kTextSize = 32;
constexpr uint16_t kDebugTextSize = 1024;
constexpr uint16_t kTraceCapacity = 32;

}  // namespace

CVYNCommandDump::CVYNCommandDump() {
  std::memset(dump_text_, 0, sizeof dump_text_);
  std::memset(status_text_, 0, sizeof status_text_);
  std::memset(property_name_text_, 0, sizeof property_name_text_);
  std::memset(property_value_text_, 0, sizeof property_value_text_);
}

CVYNCommandDump::~CVYNCommandDump() = default;

void CVYNCommandDump::Format(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(dump_text_, sizeof dump_text_, format, arguments);
  va_end(arguments);
}

bool CVYNCommandDump::AppendPiece(const char* piece) {
  const size_t used = std::strlen(dump_text_);
  const size_t length = std::strlen(piece);
  if (used + length > sizeof dump_text_ - 1) return false;
  std::memcpy(dump_text_ + used, piece, length + 1);
  return true;
}

int32_t CVYNCommandDump::DumpAcknowledgeOrNotification(unsigned char* frame) {
  if (frame == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  switch (frame[0]) {
    case MCPU_START_DELIMITER:
      return DumpAcknowledgeOrNotificationFromMCPU(frame);
    case CCPU_START_DELIMITER:
      return DumpAcknowledgeOrNotificationFromCCPU(frame);
    default:
      return VYN_STATUS_NOT_IMPLEMENTED;
  }
}

int32_t CVYNCommandDump::DumpAcknowledgeOrNotificationFromCCPU(unsigned char* frame) {
  // Fresh outputs for every frame, so that nothing of an earlier reply shows.
  unsigned char byte_1 = 0;
  unsigned char byte_2 = 0;
  unsigned char byte_3 = 0;
  unsigned char byte_4 = 0;
  unsigned char byte_5 = 0;
  uint16_t word = 0;
  uint32_t long_1 = 0;
  uint32_t long_2 = 0;
  float floats[6] = {};
  std::string texts[7];
  unsigned char list[kMaxStatusValueBytes] = {};
  unsigned char values[kMaxStatusValueBytes] = {};

  const uint16_t id = LoadLittleEndian16(frame + 1);
  switch (id) {
    case CCPU_CMD_ID_ACK_GET_DEVICE_INFO:
      ProcessAckGetDeviceInfo(frame, &byte_1, &word, &texts[0], &texts[1], &texts[2], &texts[3],
                              &texts[4], &texts[5], &texts[6], kTextSize);
      break;
    case CCPU_CMD_ID_ACK_DUMP_SETTINGS:
      ProcessAckDumpSettings(frame, &byte_1);
      break;
    case ECPU_CMD_ID_ACK_GET_ECPU_INFO:
      ProcessAckGetECPUInfo(frame, &byte_1, &word, &texts[0], kTextSize);
      break;
    case KCPU_CMD_ID_ACK_GET_KCPU_INFO:
      ProcessAckGetKCPUInfo(frame, &byte_1, &word, &texts[0], kTextSize);
      break;
    case ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET:
      ProcessAckSetECPUPWMZeroOffset(frame, &byte_1, &floats[0], &floats[1], kTextSize);
      break;
    case ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX:
      ProcessAckSetECPUPWMMinMax(frame, &byte_1, &floats[0], &floats[1], &floats[2], &floats[3],
                                 kTextSize);
      break;
    case ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION:
      ProcessAckGetECPUPWMCalibration(frame, &byte_1, &byte_2, &byte_3, &floats[0], &floats[1],
                                      &floats[2], &byte_4, &byte_5, &floats[3], &floats[4],
                                      &floats[5], kTextSize);
      break;
    case ECPU_CMD_ID_ACK_SET_ECPU_ENCODER_MIN_MAX:
      ProcessAckSetECPUEncoderMinMax(frame, &byte_1, &long_1, &long_2, kTextSize);
      break;
    case ECPU_CMD_ID_ACK_GET_ECPU_ENCODER_CALIBRATION:
      ProcessAckGetECPUEncoderCalibration(frame, &byte_1, &byte_2, &long_1, &long_2, kTextSize);
      break;
    case CCPU_CMD_ID_ACK_GET_STATUS:
      ProcessAckGetStatus(frame, &byte_1, list);
      break;
    case CCPU_CMD_ID_ACK_CONTROL:
      ProcessAckControl(frame, &byte_1, list);
      break;
    case CCPU_CMD_ID_ACK_SET_HARDWARE_INFO:
      ProcessAckSetHardwareInfo(frame, &byte_1);
      break;
    case CCPU_CMD_ID_ACK_GET_HARDWARE_INFO:
      ProcessAckGetHardwareInfo(frame, &word, &texts[0], &texts[1], kTextSize);
      break;
    case ECPU_CMD_ID_ACK_SET_HARDWARE_INFO:
      ProcessAckSetECPUHardwareInfo(frame, &byte_1);
      break;
    case ECPU_CMD_ID_ACK_GET_HARDWARE_INFO:
      ProcessAckGetECPUHardwareInfo(frame, &word, &texts[0], &texts[1], kTextSize);
      break;
    case CCPU_CMD_ID_ACK_SET_PRODUCTION_INFO:
      ProcessAckSetProductionInfo(frame, &byte_1);
      break;
    case CCPU_CMD_ID_ACK_GET_PRODUCTION_INFO:
      ProcessAckGetProductionInfo(frame, &texts[0], &texts[1], kTextSize);
      break;
    case ECPU_CMD_ID_ACK_SET_PRODUCTION_INFO:
      ProcessAckSetECPUProductionInfo(frame, &byte_1);
      break;
    case ECPU_CMD_ID_ACK_GET_PRODUCTION_INFO:
      ProcessAckGetECPUProductionInfo(frame, &texts[0], &texts[1], kTextSize);
      break;
    case CCPU_CMD_ID_NOT_STATUS:
      ProcessNotStatus(frame, &byte_1, list, values);
      break;
    case CCPU_CMD_ID_NOT_TRACE: {
      int16_t trace[kTraceCapacity] = {};
      ProcessNotTrace(frame, &word, trace, kTraceCapacity);
      break;
    }
    default:
      if (IsDebugNotificationId(id)) {
        ProcessNotDebug(frame, &word, &byte_1, &texts[0], kDebugTextSize);
      }
      break;
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandDump::DumpAcknowledgeOrNotificationFromMCPU(unsigned char* frame) {
  switch (frame[1]) {
    case MCPU_CMD_ID_READ_PARAMS_EXT:
      ProcessAckReadParamsExt(frame);
      break;
    case MCPU_CMD_ID_CONFIRM:
      ProcessAckConfirm(frame);
      break;
    case MCPU_CMD_ID_BOARD_INFO: {
      unsigned char state = 0;
      std::string version;
      ProcessAckBoardInfo(frame, &state, &version, kTextSize);
      break;
    }
    default:
      break;
  }
  return VYN_STATUS_SUCCESS;
}

const char* CVYNCommandDump::GetCommandDump(char* destination, int32_t size) {
  if (destination != nullptr && size > 0) {
    const size_t length = std::min(std::strlen(dump_text_), static_cast<size_t>(size) - 1);
    std::memcpy(destination, dump_text_, length);
    destination[length] = '\0';
  }
  return dump_text_;
}

int32_t CVYNCommandDump::ClearCommandDump() {
  std::memset(dump_text_, 0, sizeof dump_text_);
  return VYN_STATUS_SUCCESS;
}

const char* CVYNCommandDump::GetStatusString(unsigned char status) {
  const char* name = nullptr;
  switch (status) {
    case STATUS_SUCCESS:
      name = "STATUS_SUCCESS";
      break;
    case STATUS_INVALID_LENGTH:
      name = "STATUS_INVALID_LENGTH";
      break;
    case STATUS_INVALID_CHECKSUM:
      name = "STATUS_INVALID_CHECKSUM";
      break;
    case STATUS_INVALID_PARAMETER:
      name = "STATUS_INVALID_PARAMETER";
      break;
    case STATUS_BUSY:
      name = "STATUS_BUSY";
      break;
    case STATUS_GENERAL_ERROR:
      name = "STATUS_GENERAL_ERROR";
      break;
    default:
      std::snprintf(status_text_, sizeof status_text_, "%i - unknown status code", status);
      return status_text_;
  }
  std::snprintf(status_text_, sizeof status_text_, "%s", name);
  return status_text_;
}

const char* CVYNCommandDump::GetPropertyName(unsigned char property_id) {
  const char* name = nullptr;
  switch (property_id) {
    case ENCODER_AXIS_1:
      name = "Encoder Axis 1";
      break;
    case ENCODER_AXIS_2:
      name = "Encoder Axis 2";
      break;
    case ENCODER_AXIS_3:
      name = "Encoder Axis 3";
      break;
    case I2C_ERRORS:
      name = "I2C Errors";
      break;
    case LOOPS_PER_SECOND:
      name = "Loops per Second";
      break;
    case UPDATE_FIRMWARE:
      name = "Update Firmware";
      break;
    default:
      std::snprintf(property_name_text_, sizeof property_name_text_, "%i - unknown property",
                    property_id);
      return property_name_text_;
  }
  std::snprintf(property_name_text_, sizeof property_name_text_, "%s", name);
  return property_name_text_;
}

const char* CVYNCommandDump::GetPropertyValue(unsigned char property_id, unsigned char* value,
                                              unsigned char* size) {
  char* text = property_value_text_;
  switch (property_id) {
    case ENCODER_AXIS_1:
    case ENCODER_AXIS_2:
    case ENCODER_AXIS_3: {
      // 16384 steps per turn.
      const float degrees =
          static_cast<float>(static_cast<int16_t>(LoadLittleEndian16(value))) * (360.0F / 16384.0F);
      std::snprintf(text, kShortTextSize, "%0.3f; degrees", static_cast<double>(degrees));
      *size = 2;
      break;
    }
    case I2C_ERRORS:
      std::snprintf(text, kShortTextSize, "%u", LoadLittleEndian32(value));
      *size = 4;
      break;
    case LOOPS_PER_SECOND:
      std::snprintf(text, kShortTextSize, "%u",
                    static_cast<unsigned int>(LoadLittleEndian16(value)));
      *size = 2;
      break;
    case UPDATE_FIRMWARE:
      std::snprintf(text, kShortTextSize, "0x%04X",
                    static_cast<unsigned int>(LoadLittleEndian16(value)));
      *size = 2;
      break;
    default:
      std::snprintf(text, kShortTextSize, "%i - unknown property", property_id);
      *size = 0;
      break;
  }
  return text;
}
