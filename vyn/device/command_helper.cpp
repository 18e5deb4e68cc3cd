#include "vyn/device/command_helper.h"

#include <cctype>
#include <cstdio>
#include <string>

#include "vyn/core/status.h"

namespace {

constexpr uint16_t kNoRequest = 0xFFFF;
constexpr unsigned char kNoProperty = 255;
constexpr size_t kMaxValueTextLength = 255;

struct RequestEntry {
  const char* text;
  uint16_t id;
};

// In list order: the index that the list reports is the position here.
constexpr RequestEntry kRequests[] = {
    {"REQ_GET_DEVICE_INFO", CCPU_CMD_ID_REQ_GET_DEVICE_INFO},
    {"REQ_DUMP_SETTINGS", CCPU_CMD_ID_REQ_DUMP_SETTINGS},
    {"REQ_GET_ECPU_INFO", ECPU_CMD_ID_REQ_GET_ECPU_INFO},
    {"REQ_GET_KCPU_INFO", KCPU_CMD_ID_REQ_GET_KCPU_INFO},
    {"REQ_SET_ECPU_ZERO_OFFSET", ECPU_CMD_ID_REQ_SET_ECPU_PWM_ZERO_OFFSET},
    {"REQ_SET_ECPU_PWM_MIN_MAX", ECPU_CMD_ID_REQ_SET_ECPU_PWM_MIN_MAX},
    {"REQ_GET_ECPU_PWM_CALIBRATION", ECPU_CMD_ID_REQ_GET_ECPU_PWM_CALIBRATION},
    {"REQ_SET_ECPU_ENCODER_MIN_MAX", ECPU_CMD_ID_REQ_SET_ECPU_ENCODER_MIN_MAX},
    {"REQ_GET_ECPU_ENCODER_CALIBRATION", ECPU_CMD_ID_REQ_GET_ECPU_ENCODER_CALIBRATION},
    {"REQ_GET_STATUS", CCPU_CMD_ID_REQ_GET_STATUS},
    {"REQ_CONTROL", CCPU_CMD_ID_REQ_CONTROL},
};

struct PropertyEntry {
  const char* text;
  unsigned char id;
};

// ALL_MOTORS has no status of its own; asking for it sends the "none" id.
constexpr PropertyEntry kStatusProperties[] = {
    {"ENCODER_AXIS_1", ENCODER_AXIS_1}, {"ENCODER_AXIS_2", ENCODER_AXIS_2},
    {"ENCODER_AXIS_3", ENCODER_AXIS_3}, {"ALL_MOTORS", kNoProperty},
    {"I2C_ERRORS", I2C_ERRORS},         {"LOOPS_PER_SECOND", LOOPS_PER_SECOND},
};

constexpr PropertyEntry kControlProperties[] = {
    {"ALL_MOTORS", ALL_MOTORS},
    {"UPDATE_FIRMWARE", UPDATE_FIRMWARE},
};

template <size_t N>
void FillList(CComboBox* list, const PropertyEntry (&entries)[N]) {
  list->ResetContent();
  for (const PropertyEntry& entry : entries) list->AddString(entry.text);
  list->SetCurSel(0);
}

template <size_t N>
unsigned char PropertyAt(const PropertyEntry (&entries)[N], int32_t index, unsigned char other) {
  return index >= 0 && static_cast<size_t>(index) < N ? entries[index].id : other;
}

// The decimal value of the text as atoi reads it, modulo 2^32: unsigned
// arithmetic wraps where atoi would overflow, and every modulus the helper
// takes divides 2^32.
uint32_t LeadingDecimal(const std::string& text) {
  size_t i = 0;
  while (i < text.size() && std::isspace(static_cast<unsigned char>(text[i]))) ++i;
  bool negative = false;
  if (i < text.size() && (text[i] == '+' || text[i] == '-')) negative = text[i++] == '-';
  uint32_t value = 0;
  for (; i < text.size() && std::isdigit(static_cast<unsigned char>(text[i])); ++i) {
    value = value * 10U + static_cast<uint32_t>(text[i] - '0');
  }
  return negative ? 0U - value : value;
}

void ShowValue(CEdit* field, unsigned int value) {
  char text[16];
  std::snprintf(text, sizeof text, "%u", value);
  field->SetWindowText(text);
}

}  // namespace

CVYNCommandHelper::CVYNCommandHelper() = default;

CVYNCommandHelper::~CVYNCommandHelper() = default;

uint16_t CVYNCommandHelper::ConvertIndexToRequest(int32_t index) {
  if (index < 0 || static_cast<size_t>(index) >= std::size(kRequests)) return kNoRequest;
  return kRequests[index].id;
}

uint16_t CVYNCommandHelper::ConvertParameter1ToInt(uint16_t request, int32_t index) {
  if (request == CCPU_CMD_ID_REQ_GET_STATUS)
    return PropertyAt(kStatusProperties, index, kNoProperty);
  if (request == CCPU_CMD_ID_REQ_CONTROL) return PropertyAt(kControlProperties, index, ALL_MOTORS);
  return kNoProperty;
}

int32_t CVYNCommandHelper::FillRequest(CComboBox* request_list) {
  if (request_list == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  request_list->ResetContent();
  for (const RequestEntry& entry : kRequests) request_list->AddString(entry.text);
  request_list->SetCurSel(0);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNCommandHelper::FillParameters(CComboBox* request_list, CStatic* parameter_label,
                                          CComboBox* parameter_list, CStatic* value_label,
                                          CEdit* value_field) {
  if (request_list == nullptr || parameter_label == nullptr || parameter_list == nullptr ||
      value_label == nullptr || value_field == nullptr) {
    return VYN_STATUS_INVALID_PARAMETER;
  }
  const uint16_t request = ConvertIndexToRequest(request_list->GetCurSel());
  switch (request) {
    case kNoRequest:
      return VYN_STATUS_NOT_FOUND;
    case CCPU_CMD_ID_REQ_CONTROL:
    case CCPU_CMD_ID_REQ_GET_STATUS:
      parameter_label->SetWindowText("Property:");
      if (request == CCPU_CMD_ID_REQ_CONTROL) {
        FillList(parameter_list, kControlProperties);
        value_label->SetWindowText("Setpoint:");
      } else {
        FillList(parameter_list, kStatusProperties);
        value_label->SetWindowText("Update Rate:");
      }
      parameter_list->EnableWindow(true);
      value_field->EnableWindow(true);
      return VYN_STATUS_SUCCESS;
    default:
      parameter_label->SetWindowText("n/a");
      value_label->SetWindowText("n/a");
      parameter_list->ResetContent();
      parameter_list->EnableWindow(false);
      value_field->EnableWindow(false);
      return VYN_STATUS_SUCCESS;
  }
}

int32_t CVYNCommandHelper::GetCurrentCommand(CComboBox* request_list, CComboBox* parameter_list,
                                             CEdit* value_field, unsigned char* frame,
                                             uint16_t* length) {
  if (request_list == nullptr || parameter_list == nullptr || value_field == nullptr ||
      frame == nullptr || length == nullptr) {
    return VYN_STATUS_INVALID_PARAMETER;
  }
  const uint16_t request = ConvertIndexToRequest(request_list->GetCurSel());
  std::string value_text;
  if (request == CCPU_CMD_ID_REQ_GET_STATUS || request == CCPU_CMD_ID_REQ_CONTROL) {
    value_text = value_field->GetWindowText();
    if (value_text.empty() || value_text.size() > kMaxValueTextLength) {
      return VYN_STATUS_WRONG_FORMAT;
    }
  }
  uint16_t built = 0;
  switch (request) {
    case CCPU_CMD_ID_REQ_GET_DEVICE_INFO:
      built = PrepareReqGetDeviceInfo(frame);
      break;
    case CCPU_CMD_ID_REQ_DUMP_SETTINGS:
      built = PrepareReqDumpSettings(frame);
      break;
    case ECPU_CMD_ID_REQ_GET_ECPU_INFO:
      built = PrepareReqGetECPUInfo(frame);
      break;
    case KCPU_CMD_ID_REQ_GET_KCPU_INFO:
      built = PrepareReqGetKCPUInfo(frame);
      break;
    case ECPU_CMD_ID_REQ_SET_ECPU_PWM_ZERO_OFFSET:
      built = PrepareReqSetECPUPWMZeroOffset(frame);
      break;
    case ECPU_CMD_ID_REQ_SET_ECPU_PWM_MIN_MAX:
      built = PrepareReqSetECPUPWMMinMax(frame);
      break;
    case ECPU_CMD_ID_REQ_GET_ECPU_PWM_CALIBRATION:
      built = PrepareReqGetECPUPWMCalibration(frame);
      break;
    case ECPU_CMD_ID_REQ_SET_ECPU_ENCODER_MIN_MAX:
      built = PrepareReqSetECPUEncoderMinMax(frame);
      break;
    case ECPU_CMD_ID_REQ_GET_ECPU_ENCODER_CALIBRATION:
      built = PrepareReqGetECPUEncoderCalibration(frame);
      break;
    case CCPU_CMD_ID_REQ_GET_STATUS: {
      const auto property =
          static_cast<unsigned char>(ConvertParameter1ToInt(request, parameter_list->GetCurSel()));
      const auto rate = static_cast<unsigned char>(LeadingDecimal(value_text));
      ShowValue(value_field, rate);
      built = PrepareReqGetStatus(frame, 1, &property, &rate);
      break;
    }
    case CCPU_CMD_ID_REQ_CONTROL: {
      const auto property =
          static_cast<unsigned char>(ConvertParameter1ToInt(request, parameter_list->GetCurSel()));
      // ALL_MOTORS takes no setpoint: nothing to send, and the field keeps
      // what the user typed.
      if (property != UPDATE_FIRMWARE) break;
      const auto value = static_cast<uint16_t>(LeadingDecimal(value_text));
      ShowValue(value_field, value);
      built = PrepareReqControl(frame, 1, &property, &value);
      break;
    }
    default:
      break;
  }
  if (built == 0) return VYN_STATUS_UNSPECIFIC_ERROR;
  *length = built;
  return VYN_STATUS_SUCCESS;
}
