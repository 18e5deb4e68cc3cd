// Reply and notification parsers of CVYNCommandSet. Every read is checked
// against the declared payload first: a frame may lie about its length, and
// the bytes behind the payload (its checksum, the rest of the record) are
// not the reply's.
#include <algorithm>
#include <cstdio>
#include <cstring>

#include "vyn/core/status.h"
#include "vyn/device/command_set.h"
#include "vyn/device/internal/frame_payload.h"

using vyn::LoadLittleEndian16;
using vyn::LoadLittleEndian32;
using vyn::LoadLittleEndianFloat;
using vyn::device::CcpuPayload;
using vyn::device::McpuPayload;
using vyn::device::Payload;

namespace {

// True when the payload holds `width` bytes at `offset`.
bool Holds(const Payload& payload, unsigned int offset, unsigned int width) {
  return offset + width <= payload.length;
}

void ReadByteIfHeld(const Payload& payload, unsigned int offset, unsigned char* out) {
  if (Holds(payload, offset, 1)) *out = payload.data[offset];
}

void ReadFloatIfHeld(const Payload& payload, unsigned int offset, float* out) {
  if (Holds(payload, offset, 4)) *out = LoadLittleEndianFloat(payload.data + offset);
}

void Read32IfHeld(const Payload& payload, unsigned int offset, uint32_t* out) {
  if (Holds(payload, offset, 4)) *out = LoadLittleEndian32(payload.data + offset);
}

}  // namespace

int32_t CVYNCommandSet::ExtractString(const unsigned char* source, std::string* destination,
                                      uint16_t length, uint16_t size) {
  const char* text = reinterpret_cast<const char*>(source);
  if (length < size) {
    destination->assign(text, length);
    return VYN_STATUS_SUCCESS;
  }
  // A text of size 0 has no room even for its terminator.
  destination->assign(text, size == 0 ? 0 : size - 1);
  return VYN_STATUS_BUFFER_TOO_SMALL;
}

int32_t CVYNCommandSet::ExtractTexts(const unsigned char* payload, uint16_t length, uint16_t offset,
                                     std::string* const* outputs, int count, uint16_t size) {
  bool cut = false;
  for (int i = 0; i < count; ++i) {
    // A text must end inside the payload: its zero is searched for there only.
    const void* end = offset < length ? std::memchr(payload + offset, 0, length - offset) : nullptr;
    if (end == nullptr) return VYN_STATUS_INVALID_PARAMETER;
    const auto text_length =
        static_cast<uint16_t>(static_cast<const unsigned char*>(end) - (payload + offset));
    if (ExtractString(payload + offset, outputs[i], text_length, size) != VYN_STATUS_SUCCESS) {
      cut = true;
    }
    offset = static_cast<uint16_t>(offset + text_length + 1);
  }
  if (offset != length) return RX_WRONG_LENGTH;
  return cut ? VYN_STATUS_BUFFER_TOO_SMALL : VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::ProcessAckGetDeviceInfo(
    unsigned char* frame, unsigned char* protocol_version, uint16_t* hardware_type,
    std::string* hardware_version, std::string* serial_number, std::string* mcpu_version,
    std::string* ecpu_version, std::string* ccpu_version, std::string* kcpu_version,
    std::string* lcpu_version, unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 6) return RX_WRONG_LENGTH;
  *protocol_version = payload.data[0];
  *hardware_type = LoadLittleEndian16(payload.data + 1);
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  std::string* const texts[] = {hardware_version, serial_number, mcpu_version, ecpu_version,
                                ccpu_version,     kcpu_version,  lcpu_version};
  return ExtractTexts(payload.data, payload.length, 3, texts, 7, size);
}

int32_t CVYNCommandSet::ProcessAckDumpSettings(unsigned char* frame, unsigned char* status) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length != 1) return RX_WRONG_LENGTH;
  *status = payload.data[0];
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::ParseInformationAck(unsigned char* frame, unsigned char* protocol_version,
                                            uint16_t* hardware_type, std::string* version,
                                            unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 6) return RX_WRONG_LENGTH;
  *protocol_version = payload.data[0];
  *hardware_type = LoadLittleEndian16(payload.data + 1);
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  std::string* const texts[] = {version};
  return ExtractTexts(payload.data, payload.length, 3, texts, 1, size);
}

int32_t CVYNCommandSet::ProcessAckGetECPUInfo(unsigned char* frame, unsigned char* protocol_version,
                                              uint16_t* hardware_type, std::string* version,
                                              unsigned char size) {
  return ParseInformationAck(frame, protocol_version, hardware_type, version, size);
}

int32_t CVYNCommandSet::ProcessAckGetKCPUInfo(unsigned char* frame, unsigned char* protocol_version,
                                              uint16_t* hardware_type, std::string* version,
                                              unsigned char size) {
  return ParseInformationAck(frame, protocol_version, hardware_type, version, size);
}

int32_t CVYNCommandSet::ProcessAckSetECPUPWMZeroOffset(unsigned char* frame, unsigned char* status,
                                                       float* zero_offset_1, float* zero_offset_2,
                                                       unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload)) return RX_WRONG_LENGTH;
  two_channels_ = payload.length > 5;
  if (payload.length < 5) return RX_WRONG_LENGTH;
  *status = payload.data[0];
  ReadFloatIfHeld(payload, 1, zero_offset_1);
  if (two_channels_) ReadFloatIfHeld(payload, 5, zero_offset_2);
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  return payload.length == 5 || payload.length == 9 ? VYN_STATUS_SUCCESS : RX_WRONG_LENGTH;
}

int32_t CVYNCommandSet::ProcessAckSetECPUPWMMinMax(unsigned char* frame, unsigned char* status,
                                                   float* duty_cycle_min_1, float* duty_cycle_max_1,
                                                   float* duty_cycle_min_2, float* duty_cycle_max_2,
                                                   unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload)) return RX_WRONG_LENGTH;
  two_channels_ = payload.length > 9;
  if (payload.length < 6) return RX_WRONG_LENGTH;
  *status = payload.data[0];
  ReadFloatIfHeld(payload, 1, duty_cycle_min_1);
  ReadFloatIfHeld(payload, 5, duty_cycle_max_1);
  if (two_channels_) {
    ReadFloatIfHeld(payload, 9, duty_cycle_min_2);
    ReadFloatIfHeld(payload, 13, duty_cycle_max_2);
  }
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  return payload.length == 9 || payload.length == 17 ? VYN_STATUS_SUCCESS : RX_WRONG_LENGTH;
}

int32_t CVYNCommandSet::ProcessAckGetECPUPWMCalibration(
    unsigned char* frame, unsigned char* status, unsigned char* min_max_calibrated_1,
    unsigned char* zero_calibrated_1, float* duty_cycle_min_1, float* duty_cycle_max_1,
    float* duty_cycle_offset_1, unsigned char* min_max_calibrated_2,
    unsigned char* zero_calibrated_2, float* duty_cycle_min_2, float* duty_cycle_max_2,
    float* duty_cycle_offset_2, unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload)) return RX_WRONG_LENGTH;
  two_channels_ = payload.length > 15;
  if (payload.length < 6) return RX_WRONG_LENGTH;
  *status = payload.data[0];
  *min_max_calibrated_1 = payload.data[1];
  *zero_calibrated_1 = payload.data[2];
  ReadFloatIfHeld(payload, 3, duty_cycle_min_1);
  ReadFloatIfHeld(payload, 7, duty_cycle_max_1);
  ReadFloatIfHeld(payload, 11, duty_cycle_offset_1);
  if (two_channels_) {
    ReadByteIfHeld(payload, 15, min_max_calibrated_2);
    ReadByteIfHeld(payload, 16, zero_calibrated_2);
    ReadFloatIfHeld(payload, 17, duty_cycle_min_2);
    ReadFloatIfHeld(payload, 21, duty_cycle_max_2);
    ReadFloatIfHeld(payload, 25, duty_cycle_offset_2);
  }
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  return payload.length == 15 || payload.length == 29 ? VYN_STATUS_SUCCESS : RX_WRONG_LENGTH;
}

int32_t CVYNCommandSet::ProcessAckSetECPUEncoderMinMax(unsigned char* frame, unsigned char* status,
                                                       uint32_t* encoder_min, uint32_t* encoder_max,
                                                       unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 6) return RX_WRONG_LENGTH;
  *status = payload.data[0];
  Read32IfHeld(payload, 1, encoder_min);
  Read32IfHeld(payload, 5, encoder_max);
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  return payload.length == 9 ? VYN_STATUS_SUCCESS : RX_WRONG_LENGTH;
}

int32_t CVYNCommandSet::ProcessAckGetECPUEncoderCalibration(
    unsigned char* frame, unsigned char* status, unsigned char* calibrated, uint32_t* encoder_min,
    uint32_t* encoder_max, unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 6) return RX_WRONG_LENGTH;
  *status = payload.data[0];
  *calibrated = payload.data[1];
  Read32IfHeld(payload, 2, encoder_min);
  Read32IfHeld(payload, 6, encoder_max);
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  return payload.length == 10 ? VYN_STATUS_SUCCESS : RX_WRONG_LENGTH;
}

int32_t CVYNCommandSet::ParseStatusList(unsigned char* frame, unsigned char* count,
                                        unsigned char* status_codes) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload)) {
    *count = 0;
    return RX_WRONG_LENGTH;
  }
  // A request names at most 255 entries, so an honest reply has no more.
  const auto taken = static_cast<unsigned char>(std::min<int>(payload.length, kMaxStatusCodes));
  std::memcpy(status_codes, payload.data, taken);
  *count = taken;
  return payload.length > kMaxStatusCodes ? RX_WRONG_LENGTH : VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::ProcessAckGetStatus(unsigned char* frame, unsigned char* count,
                                            unsigned char* status_codes) {
  return ParseStatusList(frame, count, status_codes);
}

int32_t CVYNCommandSet::ProcessAckControl(unsigned char* frame, unsigned char* count,
                                          unsigned char* status_codes) {
  return ParseStatusList(frame, count, status_codes);
}

int32_t CVYNCommandSet::ParseSetAck(unsigned char* frame, unsigned char* status) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 1) return RX_WRONG_LENGTH;
  *status = payload.data[0];
  return payload.length == 1 ? VYN_STATUS_SUCCESS : RX_WRONG_LENGTH;
}

int32_t CVYNCommandSet::ProcessAckSetHardwareInfo(unsigned char* frame, unsigned char* status) {
  return ParseSetAck(frame, status);
}

int32_t CVYNCommandSet::ProcessAckSetECPUHardwareInfo(unsigned char* frame, unsigned char* status) {
  return ParseSetAck(frame, status);
}

int32_t CVYNCommandSet::ProcessAckSetProductionInfo(unsigned char* frame, unsigned char* status) {
  return ParseSetAck(frame, status);
}

int32_t CVYNCommandSet::ProcessAckSetECPUProductionInfo(unsigned char* frame,
                                                        unsigned char* status) {
  return ParseSetAck(frame, status);
}

int32_t CVYNCommandSet::ParseHardwareInfoAck(unsigned char* frame, uint16_t* hardware_type,
                                             std::string* hardware_version,
                                             std::string* serial_number, unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 4) return RX_WRONG_LENGTH;
  *hardware_type = LoadLittleEndian16(payload.data);
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  std::string* const texts[] = {hardware_version, serial_number};
  return ExtractTexts(payload.data, payload.length, 2, texts, 2, size);
}

int32_t CVYNCommandSet::ProcessAckGetHardwareInfo(unsigned char* frame, uint16_t* hardware_type,
                                                  std::string* hardware_version,
                                                  std::string* serial_number, unsigned char size) {
  return ParseHardwareInfoAck(frame, hardware_type, hardware_version, serial_number, size);
}

int32_t CVYNCommandSet::ProcessAckGetECPUHardwareInfo(unsigned char* frame, uint16_t* hardware_type,
                                                      std::string* hardware_version,
                                                      std::string* serial_number,
                                                      unsigned char size) {
  return ParseHardwareInfoAck(frame, hardware_type, hardware_version, serial_number, size);
}

int32_t CVYNCommandSet::ParseProductionInfoAck(unsigned char* frame, std::string* production_date,
                                               std::string* production_user, unsigned char size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 4) return RX_WRONG_LENGTH;
  std::string* const texts[] = {production_date, production_user};
  return ExtractTexts(payload.data, payload.length, 0, texts, 2, size);
}

int32_t CVYNCommandSet::ProcessAckGetProductionInfo(unsigned char* frame,
                                                    std::string* production_date,
                                                    std::string* production_user,
                                                    unsigned char size) {
  return ParseProductionInfoAck(frame, production_date, production_user, size);
}

int32_t CVYNCommandSet::ProcessAckGetECPUProductionInfo(unsigned char* frame,
                                                        std::string* production_date,
                                                        std::string* production_user,
                                                        unsigned char size) {
  return ParseProductionInfoAck(frame, production_date, production_user, size);
}

int32_t CVYNCommandSet::ProcessNotStatus(unsigned char* frame, unsigned char* count,
                                         unsigned char* property_ids, unsigned char* values) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload)) {
    *count = 0;
    return RX_WRONG_LENGTH;
  }
  int32_t result = VYN_STATUS_SUCCESS;
  unsigned int position = 0;
  unsigned int entries = 0;
  unsigned int value_bytes = 0;
  while (position < payload.length) {
    const unsigned char id = payload.data[position];
    if (entries == kMaxStatusProperties || !Holds(payload, position + 1, StatusValueSize(id))) {
      result = RX_WRONG_LENGTH;
      break;
    }
    property_ids[entries++] = id;
    unsigned char size = 0;
    GetPropertyValue(payload.data + position + 1, id, values + value_bytes, &size);
    value_bytes += size;
    position += 1 + size;
  }
  *count = static_cast<unsigned char>(entries);
  return result;
}

int32_t CVYNCommandSet::ProcessNotTrace(unsigned char* frame, uint16_t* count, int16_t* values,
                                        uint16_t capacity) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length == 0 || payload.length % 2 != 0) {
    return RX_WRONG_LENGTH;
  }
  *count = static_cast<uint16_t>(payload.length / 2);
  if (capacity < *count) return VYN_STATUS_BUFFER_TOO_SMALL;
  for (uint16_t i = 0; i < *count; ++i) {
    values[i] = static_cast<int16_t>(LoadLittleEndian16(payload.data + 2 * size_t{i}));
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::ProcessNotDebug(unsigned char* frame, uint16_t* source,
                                        unsigned char* priority, std::string* text, uint16_t size) {
  Payload payload{};
  if (!CcpuPayload(frame, &payload) || payload.length < 4) return RX_WRONG_LENGTH;
  *source = LoadLittleEndian16(payload.data);
  *priority = payload.data[2];
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  // Whether the text fits is decided by the bytes the device sent; what is
  // kept ends at the first zero among them, as every other text does.
  const int32_t result =
      ExtractString(payload.data + 3, text, static_cast<uint16_t>(payload.length - 3), size);
  const size_t zero = text->find('\0');
  if (zero != std::string::npos) text->resize(zero);
  return result;
}

int32_t CVYNCommandSet::ProcessAckBoardInfo(unsigned char* frame, unsigned char* state,
                                            std::string* version, unsigned char size) {
  const Payload payload = McpuPayload(frame);
  if (payload.length != 18) return RX_WRONG_LENGTH;
  *state = payload.data[3];
  if (size < 2) return VYN_STATUS_INVALID_PARAMETER;
  // Version numbers count from 20101 = V 01.00.00; the arithmetic is that of
  // the unsigned 32-bit field, so numbers below it wrap like the device's own.
  const uint32_t number = LoadLittleEndian32(payload.data + 7) - 20101U;
  char text[256];
  std::snprintf(text, size, "V %02i.%02i.%02i", static_cast<unsigned char>(number / 10000 + 1),
                static_cast<int>((number % 10000) / 100), static_cast<int>(number % 100));
  version->assign(text);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::ProcessAckReadParamsExt(unsigned char* frame, int16_t* first_triple,
                                                int16_t* second_triple) {
  const Payload payload = McpuPayload(frame);
  if (!Holds(payload, 28, 12)) return RX_WRONG_LENGTH;
  for (size_t i = 0; i < 3; ++i) {
    first_triple[i] = static_cast<int16_t>(LoadLittleEndian16(payload.data + 28 + 2 * i));
    second_triple[i] = static_cast<int16_t>(LoadLittleEndian16(payload.data + 34 + 2 * i));
  }
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::ProcessRealtimeData3(unsigned char* frame, unsigned char* value_a,
                                             uint16_t* value_b, uint16_t* value_c,
                                             unsigned char* value_d) {
  const Payload payload = McpuPayload(frame);
  if (payload.length != 63) return RX_WRONG_LENGTH;
  *value_a = payload.data[57];
  *value_b = LoadLittleEndian16(payload.data + 52);
  *value_c = LoadLittleEndian16(payload.data + 14);
  *value_d = payload.data[16];
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandSet::ProcessAckConfirm(unsigned char* frame, unsigned char* command) {
  const Payload payload = McpuPayload(frame);
  if (payload.length < 1) return RX_WRONG_LENGTH;
  *command = payload.data[0];
  return VYN_STATUS_SUCCESS;
}
