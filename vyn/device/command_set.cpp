// Request builders, the sender's checksums and the property helpers of
// CVYNCommandSet. The parsers live in command_parsers.cpp.
#include "vyn/device/command_set.h"

#include <algorithm>
#include <cstring>

#include "vyn/core/internal/frame_bytes.h"
#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/status.h"

using vyn::LoadLittleEndian16;
using vyn::StoreLittleEndian16;
using vyn::StoreLittleEndian32;
using vyn::Sum8;

namespace {

// Texts longer than this are cut, so that a frame stays predictable in size
// whatever the caller hands over.
constexpr size_t kMaxTextLength = 254;

uint16_t CcpuFrameLength(uint16_t payload_length) {
  return payload_length == 0 ? CCPU_HEADER_LENGTH
                             : static_cast<uint16_t>(payload_length + CCPU_HEADER_LENGTH + 1);
}

// Start delimiter, id and payload length; returns the frame length.
uint16_t WriteCcpuHeader(unsigned char* frame, uint16_t id, uint16_t payload_length) {
  frame[0] = CCPU_START_DELIMITER;
  StoreLittleEndian16(frame + 1, id);
  StoreLittleEndian16(frame + 3, payload_length);
  return CcpuFrameLength(payload_length);
}

// The fixed-payload requests also clear the sequence byte; the sender
// overwrites it in any case.
uint16_t WriteFixedCcpuHeader(unsigned char* frame, uint16_t id, uint16_t payload_length) {
  frame[5] = 0;
  return WriteCcpuHeader(frame, id, payload_length);
}

// Appends a text up to its first zero (at most kMaxTextLength characters)
// and a terminating zero; returns the new position.
size_t AppendText(unsigned char* frame, size_t position, const std::string& text) {
  const size_t length = std::min(std::strlen(text.c_str()), kMaxTextLength);
  std::memcpy(frame + position, text.data(), length);
  frame[position + length] = 0;
  return position + length + 1;
}

uint16_t WriteTwoTexts(unsigned char* frame, uint16_t id, const std::string& first,
                       const std::string& second, size_t position) {
  position = AppendText(frame, position, first);
  position = AppendText(frame, position, second);
  return WriteCcpuHeader(frame, id, static_cast<uint16_t>(position - CCPU_HEADER_LENGTH));
}

uint16_t WriteMcpu(unsigned char* frame, unsigned char id, const unsigned char* payload,
                   unsigned char payload_length) {
  frame[0] = MCPU_START_DELIMITER;
  frame[1] = id;
  frame[2] = payload_length;
  if (payload_length > 0) std::memcpy(frame + MCPU_HEADER_LENGTH, payload, payload_length);
  return static_cast<uint16_t>(payload_length + MCPU_HEADER_LENGTH + 1);
}

}  // namespace

CVYNCommandSet::CVYNCommandSet() = default;

uint16_t CVYNCommandSet::PrepareReqGetDeviceInfo(unsigned char* frame) {
  return WriteCcpuHeader(frame, CCPU_CMD_ID_REQ_GET_DEVICE_INFO, 0);
}

uint16_t CVYNCommandSet::PrepareReqDumpSettings(unsigned char* frame) {
  return WriteCcpuHeader(frame, CCPU_CMD_ID_REQ_DUMP_SETTINGS, 0);
}

uint16_t CVYNCommandSet::PrepareReqGetECPUInfo(unsigned char* frame) {
  return WriteCcpuHeader(frame, ECPU_CMD_ID_REQ_GET_ECPU_INFO, 0);
}

uint16_t CVYNCommandSet::PrepareReqGetKCPUInfo(unsigned char* frame) {
  return WriteCcpuHeader(frame, KCPU_CMD_ID_REQ_GET_KCPU_INFO, 0);
}

uint16_t CVYNCommandSet::PrepareReqSetECPUPWMZeroOffset(unsigned char* frame) {
  // 0x8000 is the middle of the PWM range: both channels at rest.
  StoreLittleEndian16(frame + 7, 0x8000);
  StoreLittleEndian16(frame + 9, 0x8000);
  return WriteFixedCcpuHeader(frame, ECPU_CMD_ID_REQ_SET_ECPU_PWM_ZERO_OFFSET, 4);
}

uint16_t CVYNCommandSet::PrepareReqSetECPUPWMMinMax(unsigned char* frame) {
  // Four IEEE floats 0.0, whose bytes are all zero.
  std::memset(frame + 7, 0, 16);
  return WriteFixedCcpuHeader(frame, ECPU_CMD_ID_REQ_SET_ECPU_PWM_MIN_MAX, 16);
}

uint16_t CVYNCommandSet::PrepareReqGetECPUPWMCalibration(unsigned char* frame) {
  return WriteCcpuHeader(frame, ECPU_CMD_ID_REQ_GET_ECPU_PWM_CALIBRATION, 0);
}

uint16_t CVYNCommandSet::PrepareReqSetECPUEncoderMinMax(unsigned char* frame) {
  StoreLittleEndian32(frame + 7, 0);
  StoreLittleEndian32(frame + 11, 0);
  return WriteFixedCcpuHeader(frame, ECPU_CMD_ID_REQ_SET_ECPU_ENCODER_MIN_MAX, 8);
}

uint16_t CVYNCommandSet::PrepareReqGetECPUEncoderCalibration(unsigned char* frame) {
  return WriteCcpuHeader(frame, ECPU_CMD_ID_REQ_GET_ECPU_ENCODER_CALIBRATION, 0);
}

uint16_t CVYNCommandSet::PrepareReqGetStatus(unsigned char* frame, unsigned char count,
                                             const unsigned char* property_ids,
                                             const unsigned char* update_rates) {
  size_t position = CCPU_HEADER_LENGTH;
  for (unsigned int i = 0; i < count; ++i) {
    frame[position++] = property_ids[i];
    frame[position++] = update_rates[i];
  }
  return WriteCcpuHeader(frame, CCPU_CMD_ID_REQ_GET_STATUS,
                         static_cast<uint16_t>(position - CCPU_HEADER_LENGTH));
}

uint16_t CVYNCommandSet::PrepareReqControl(unsigned char* frame, unsigned char count,
                                           const unsigned char* property_ids,
                                           const uint16_t* values) {
  size_t position = CCPU_HEADER_LENGTH;
  size_t next_value = 0;
  for (unsigned int i = 0; i < count; ++i) {
    const unsigned char id = property_ids[i];
    frame[position++] = id;
    unsigned char size = 0;
    // Only the ids that take a value consume one from `values`.
    if (SetPropertyValue(frame + position, id, values + next_value, &size) == 0) ++next_value;
    position += size;
  }
  return WriteCcpuHeader(frame, CCPU_CMD_ID_REQ_CONTROL,
                         static_cast<uint16_t>(position - CCPU_HEADER_LENGTH));
}

uint16_t CVYNCommandSet::PrepareReqSetHardwareInfo(unsigned char* frame, uint16_t hardware_type,
                                                   std::string hardware_version,
                                                   std::string serial_number) {
  StoreLittleEndian16(frame + 7, hardware_type);
  return WriteTwoTexts(frame, CCPU_CMD_ID_REQ_SET_HARDWARE_INFO, hardware_version, serial_number,
                       CCPU_HEADER_LENGTH + 2);
}

uint16_t CVYNCommandSet::PrepareReqGetHardwareInfo(unsigned char* frame) {
  return WriteCcpuHeader(frame, CCPU_CMD_ID_REQ_GET_HARDWARE_INFO, 0);
}

uint16_t CVYNCommandSet::PrepareReqSetECPUHardwareInfo(unsigned char* frame, uint16_t hardware_type,
                                                       std::string hardware_version,
                                                       std::string serial_number) {
  StoreLittleEndian16(frame + 7, hardware_type);
  return WriteTwoTexts(frame, ECPU_CMD_ID_REQ_SET_HARDWARE_INFO, hardware_version, serial_number,
                       CCPU_HEADER_LENGTH + 2);
}

uint16_t CVYNCommandSet::PrepareReqGetECPUHardwareInfo(unsigned char* frame) {
  return WriteCcpuHeader(frame, ECPU_CMD_ID_REQ_GET_HARDWARE_INFO, 0);
}

uint16_t CVYNCommandSet::PrepareReqSetProductionInfo(unsigned char* frame,
                                                     std::string production_date,
                                                     std::string production_user) {
  return WriteTwoTexts(frame, CCPU_CMD_ID_REQ_SET_PRODUCTION_INFO, production_date, production_user,
                       CCPU_HEADER_LENGTH);
}

uint16_t CVYNCommandSet::PrepareReqGetProductionInfo(unsigned char* frame) {
  return WriteCcpuHeader(frame, CCPU_CMD_ID_REQ_GET_PRODUCTION_INFO, 0);
}

uint16_t CVYNCommandSet::PrepareReqSetECPUProductionInfo(unsigned char* frame,
                                                         std::string production_date,
                                                         std::string production_user) {
  return WriteTwoTexts(frame, ECPU_CMD_ID_REQ_SET_PRODUCTION_INFO, production_date, production_user,
                       CCPU_HEADER_LENGTH);
}

uint16_t CVYNCommandSet::PrepareReqGetECPUProductionInfo(unsigned char* frame) {
  return WriteCcpuHeader(frame, ECPU_CMD_ID_REQ_GET_PRODUCTION_INFO, 0);
}

uint16_t CVYNCommandSet::PrepareReqBoardInfo(unsigned char* frame) {
  return WriteMcpu(frame, MCPU_CMD_ID_BOARD_INFO, nullptr, 0);
}

uint16_t CVYNCommandSet::PrepareReqReadParamsExt(unsigned char* frame) {
  // One payload byte 0, declared as such, so that the six bytes sent are
  // exactly the frame that the header describes.
  const unsigned char payload[] = {0};
  return WriteMcpu(frame, MCPU_CMD_ID_READ_PARAMS_EXT, payload, 1);
}

uint16_t CVYNCommandSet::PrepareReqEncodersCalibFldOffset(unsigned char* frame) {
  return WriteMcpu(frame, MCPU_CMD_ID_CALIBRATE_EFO, nullptr, 0);
}

uint16_t CVYNCommandSet::PrepareReqEncodersCalibOffset(unsigned char* frame) {
  return WriteMcpu(frame, MCPU_CMD_ID_CALIBRATE_ZERO, nullptr, 0);
}

uint16_t CVYNCommandSet::PrepareReqRealTimeData3(unsigned char* frame) {
  return WriteMcpu(frame, MCPU_CMD_ID_REALTIME_DATA_3, nullptr, 0);
}

uint16_t CVYNCommandSet::PrepareReqMotorsOn(unsigned char* frame) {
  const unsigned char payload[] = {0x0B};
  return WriteMcpu(frame, MCPU_CMD_ID_CHANGE_MOTORS, payload, 1);
}

uint16_t CVYNCommandSet::PrepareReqMotorsOff(unsigned char* frame) {
  const unsigned char payload[] = {0x0C};
  return WriteMcpu(frame, MCPU_CMD_ID_CHANGE_MOTORS, payload, 1);
}

int32_t CVYNCommandSet::CalculateChecksums(unsigned char* frame) {
  if (frame == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  switch (frame[0]) {
    case MCPU_START_DELIMITER:
      return CalculateChecksumsForMCPU(frame);
    case CCPU_START_DELIMITER:
      return CalculateChecksumsForCCPU(frame);
    default:
      return VYN_STATUS_NOT_IMPLEMENTED;
  }
}

int32_t CVYNCommandSet::CalculateChecksumsForCCPU(unsigned char* frame) {
  const uint16_t payload_length = LoadLittleEndian16(frame + 3);
  // Its payload checksum would lie beyond any frame record; no receiver
  // takes such a frame, so it is not touched.
  if (payload_length > CCPU_MAX_PAYLOAD_LENGTH) return VYN_STATUS_INVALID_PARAMETER;
  {
    vyn::ScopedLock lock(&sequence_lock_);
    frame[5] = sequence_counter_;
    sequence_counter_ =
        sequence_counter_ == 255 ? 1 : static_cast<unsigned char>(sequence_counter_ + 1);
  }
  frame[6] = Sum8(frame + 1, 5);
  if (payload_length > 0) {
    frame[CCPU_HEADER_LENGTH + payload_length] = Sum8(frame + CCPU_HEADER_LENGTH, payload_length);
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::CalculateChecksumsForMCPU(unsigned char* frame) {
  const unsigned char payload_length = frame[2];
  frame[3] = Sum8(frame + 1, 2);
  frame[MCPU_HEADER_LENGTH + payload_length] = Sum8(frame + MCPU_HEADER_LENGTH, payload_length);
  return VYN_STATUS_SUCCESS;
}

unsigned char CVYNCommandSet::StatusValueSize(unsigned char property_id) {
  switch (property_id) {
    case ENCODER_AXIS_1:
    case ENCODER_AXIS_2:
    case ENCODER_AXIS_3:
    case LOOPS_PER_SECOND:
      return 2;
    case I2C_ERRORS:
      return 4;
    default:
      return 0;
  }
}

int32_t CVYNCommandSet::SetPropertyValue(unsigned char* destination, unsigned char property_id,
                                         const uint16_t* source, unsigned char* size) {
  switch (property_id) {
    case ENCODER_AXIS_1:
    case ENCODER_AXIS_2:
    case ENCODER_AXIS_3:
    case UPDATE_FIRMWARE:
      StoreLittleEndian16(destination, *source);
      *size = 2;
      return VYN_STATUS_SUCCESS;
    default:
      *size = 0;
      return VYN_STATUS_NOT_FOUND;
  }
}

int32_t CVYNCommandSet::GetPropertyValue(const unsigned char* source, unsigned char property_id,
                                         unsigned char* destination, unsigned char* size) {
  *size = StatusValueSize(property_id);
  if (*size == 0) return VYN_STATUS_NOT_FOUND;
  std::memcpy(destination, source, *size);
  return VYN_STATUS_SUCCESS;
}
