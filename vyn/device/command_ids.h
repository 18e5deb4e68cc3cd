// The device's vocabulary: command ids of both framings, property ids and the
// status codes that acknowledgements carry.
//
// A CCPU command id is 16 bits (frame bytes 1 and 2). Its high byte names the
// processor and the kind: requests 0x00 (CCPU), 0x0A (KCPU), 0x0B (ECPU); the
// acknowledgement of a request is the request's id plus 0x4000; notifications
// have the top bit set. An MCPU command id is one byte, and a reply carries
// the id of its request.
//
// Thread-safety: constants only.
#pragma once

#include <cstdint>

// CCPU requests.
constexpr uint16_t CCPU_CMD_ID_REQ_GET_DEVICE_INFO = 0x0001;
constexpr uint16_t CCPU_CMD_ID_REQ_GET_STATUS = 0x0002;
constexpr uint16_t CCPU_CMD_ID_REQ_DUMP_SETTINGS = 0x0003;
constexpr uint16_t CCPU_CMD_ID_REQ_CONTROL = 0x0011;
constexpr uint16_t CCPU_CMD_ID_REQ_SET_HARDWARE_INFO = 0x0051;
constexpr uint16_t CCPU_CMD_ID_REQ_GET_HARDWARE_INFO = 0x0052;
constexpr uint16_t CCPU_CMD_ID_REQ_SET_PRODUCTION_INFO = 0x0053;
constexpr uint16_t CCPU_CMD_ID_REQ_GET_PRODUCTION_INFO = 0x0054;
constexpr uint16_t KCPU_CMD_ID_REQ_GET_KCPU_INFO = 0x0A01;
constexpr uint16_t ECPU_CMD_ID_REQ_GET_ECPU_INFO = 0x0B01;
constexpr uint16_t ECPU_CMD_ID_REQ_SET_ECPU_PWM_ZERO_OFFSET = 0x0B21;
constexpr uint16_t ECPU_CMD_ID_REQ_SET_ECPU_PWM_MIN_MAX = 0x0B22;
constexpr uint16_t ECPU_CMD_ID_REQ_GET_ECPU_PWM_CALIBRATION = 0x0B23;
constexpr uint16_t ECPU_CMD_ID_REQ_SET_ECPU_ENCODER_MIN_MAX = 0x0B24;
constexpr uint16_t ECPU_CMD_ID_REQ_GET_ECPU_ENCODER_CALIBRATION = 0x0B25;
constexpr uint16_t ECPU_CMD_ID_REQ_SET_HARDWARE_INFO = 0x0B51;
constexpr uint16_t ECPU_CMD_ID_REQ_GET_HARDWARE_INFO = 0x0B52;
constexpr uint16_t ECPU_CMD_ID_REQ_SET_PRODUCTION_INFO = 0x0B53;
constexpr uint16_t ECPU_CMD_ID_REQ_GET_PRODUCTION_INFO = 0x0B54;

// CCPU acknowledgements.
constexpr uint16_t CCPU_CMD_ID_ACK_GET_DEVICE_INFO = 0x4001;
constexpr uint16_t CCPU_CMD_ID_ACK_GET_STATUS = 0x4002;
constexpr uint16_t CCPU_CMD_ID_ACK_DUMP_SETTINGS = 0x4003;
constexpr uint16_t CCPU_CMD_ID_ACK_CONTROL = 0x4011;
constexpr uint16_t CCPU_CMD_ID_ACK_SET_HARDWARE_INFO = 0x4051;
constexpr uint16_t CCPU_CMD_ID_ACK_GET_HARDWARE_INFO = 0x4052;
constexpr uint16_t CCPU_CMD_ID_ACK_SET_PRODUCTION_INFO = 0x4053;
constexpr uint16_t CCPU_CMD_ID_ACK_GET_PRODUCTION_INFO = 0x4054;
constexpr uint16_t KCPU_CMD_ID_ACK_GET_KCPU_INFO = 0x4A01;
constexpr uint16_t ECPU_CMD_ID_ACK_GET_ECPU_INFO = 0x4B01;
constexpr uint16_t ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET = 0x4B21;
constexpr uint16_t ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX = 0x4B22;
constexpr uint16_t ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION = 0x4B23;
constexpr uint16_t ECPU_CMD_ID_ACK_SET_ECPU_ENCODER_MIN_MAX = 0x4B24;
constexpr uint16_t ECPU_CMD_ID_ACK_GET_ECPU_ENCODER_CALIBRATION = 0x4B25;
constexpr uint16_t ECPU_CMD_ID_ACK_SET_HARDWARE_INFO = 0x4B51;
constexpr uint16_t ECPU_CMD_ID_ACK_GET_HARDWARE_INFO = 0x4B52;
constexpr uint16_t ECPU_CMD_ID_ACK_SET_PRODUCTION_INFO = 0x4B53;
constexpr uint16_t ECPU_CMD_ID_ACK_GET_PRODUCTION_INFO = 0x4B54;

// CCPU notifications, sent by the device unasked. The debug notification
// comes from three sources under three ids that share this one name:
// 0xBAFF, 0xBBFF and 0xBFFF.
constexpr uint16_t CCPU_CMD_ID_NOT_STATUS = 0x8002;
constexpr uint16_t CCPU_CMD_ID_NOT_TRACE = 0xBFFE;
constexpr uint16_t CCPU_CMD_ID_NOT_DEBUG = 0xBFFF;

// True for every id that carries a debug notification.
constexpr bool IsDebugNotificationId(uint16_t id) {
  return id == 0xBAFF || id == 0xBBFF || id == CCPU_CMD_ID_NOT_DEBUG;
}

// MCPU command ids; a reply carries its request's id, a confirmation the id
// MCPU_CMD_ID_CONFIRM with the confirmed id as its first payload byte.
constexpr unsigned char MCPU_CMD_ID_REALTIME_DATA_3 = 0x17;
constexpr unsigned char MCPU_CMD_ID_CALIBRATE_ZERO = 0x1A;
constexpr unsigned char MCPU_CMD_ID_CALIBRATE_EFO = 0x1B;
constexpr unsigned char MCPU_CMD_ID_READ_PARAMS_EXT = 0x21;
constexpr unsigned char MCPU_CMD_ID_WRITE_ENCODER_CALIBRATION = 0x22;
constexpr unsigned char MCPU_CMD_ID_CONFIRM = 0x43;
constexpr unsigned char MCPU_CMD_ID_CHANGE_MOTORS = 0x45;
constexpr unsigned char MCPU_CMD_ID_BOARD_INFO = 0x56;

// Property ids of status requests, control requests and status notifications.
constexpr unsigned char ALL_MOTORS = 0;
constexpr unsigned char ENCODER_AXIS_1 = 5;
constexpr unsigned char ENCODER_AXIS_2 = 6;
constexpr unsigned char ENCODER_AXIS_3 = 7;
constexpr unsigned char I2C_ERRORS = 26;
constexpr unsigned char LOOPS_PER_SECOND = 27;
constexpr unsigned char UPDATE_FIRMWARE = 128;

// Device status codes inside acknowledgements.
constexpr unsigned char STATUS_SUCCESS = 0;
constexpr unsigned char STATUS_INVALID_LENGTH = 1;
constexpr unsigned char STATUS_INVALID_CHECKSUM = 2;
constexpr unsigned char STATUS_INVALID_PARAMETER = 3;
constexpr unsigned char STATUS_BUSY = 4;
constexpr unsigned char STATUS_GENERAL_ERROR = 127;
