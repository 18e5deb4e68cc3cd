// What the simulated device knows about itself: identities and version texts
// of its processors, the calibration of its input devices, the positions of
// its encoder axes and the state of its motors. The responders read and
// change it; the notification source reports from it.
//
// Thread-safety: none; the simulator guards it with its own lock.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>

namespace vyn::sim {

// Status codes inside acknowledgements.
inline constexpr uint8_t kStatusSuccess = 0;
inline constexpr uint8_t kStatusInvalidLength = 1;
inline constexpr uint8_t kStatusInvalidParameter = 3;

// Property ids of status requests, control requests and status notifications.
inline constexpr uint8_t kPropertyAllMotors = 0;
inline constexpr uint8_t kPropertyEncoderAxis1 = 5;  // axes 2 and 3 follow as 6 and 7
inline constexpr uint8_t kPropertyI2cErrors = 26;
inline constexpr uint8_t kPropertyLoopsPerSecond = 27;
inline constexpr uint8_t kPropertyUpdateFirmware = 128;

inline bool IsEncoderAxis(uint8_t property) {
  return property >= kPropertyEncoderAxis1 && property < kPropertyEncoderAxis1 + 3;
}

// Hardware and production information of one processor board, as the set
// requests store it and the get requests report it.
struct BoardIdentity {
  uint16_t hardware_type = 0;
  std::string hardware_version;
  std::string serial_number;
  std::string production_date;
  std::string production_user;
};

// One channel of the PWM input (a rocker has one, a joystick two); duty
// cycles and offsets in percent.
struct PwmChannel {
  bool min_max_calibrated = false;
  bool zero_calibrated = false;
  float duty_cycle_min = 10.0f;
  float duty_cycle_max = 90.0f;
  float zero_offset = 50.0f;
};

struct DeviceState {
  // Two PWM channels (joystick) or one (rocker); decides the size of the
  // ECPU PWM replies.
  bool two_channel_input = true;

  uint8_t protocol_version = 2;
  BoardIdentity ccpu{0x0110, "CB 1.1", "24-0001", "2024-03-12", "assembly"};
  BoardIdentity ecpu{0x0210, "EB 2.0", "24-0417", "2024-03-11", "assembly"};
  uint16_t kcpu_hardware_type = 0x0310;
  std::string mcpu_version = "V 02.01.04";
  std::string ecpu_version = "V 01.04.02";
  std::string ccpu_version = "V 03.02.07";
  std::string kcpu_version = "V 01.01.00";
  std::string lcpu_version = "V 01.00.03";

  PwmChannel pwm[2] = {{}, {false, false, 12.5f, 87.5f, 50.0f}};
  bool encoder_calibrated = false;
  uint32_t encoder_min = 0;
  uint32_t encoder_max = 0;

  // Encoder axes in steps of 360/16384 degrees; they move towards their
  // set-points at every tick of the device.
  int16_t axis_position[3] = {0, 0, 0};
  int16_t axis_setpoint[3] = {0, 0, 0};
  uint32_t i2c_errors = 0;
  uint16_t loops_per_second = 1000;

  // Motor processor. The version number renders as "V 02.01.04".
  bool motors_on = false;
  uint32_t mcpu_version_number = 30205;
  int16_t zero_offsets[3] = {0, 0, 0};
  int16_t efo_offsets[3] = {0, 0, 0};
  bool calibration_stored = false;
  uint16_t ticks = 0;

  // One tick of the device's control loop.
  void Advance() {
    constexpr int kStep = 256;
    for (int i = 0; i < 3; ++i) {
      const int difference = axis_setpoint[i] - axis_position[i];
      axis_position[i] =
          static_cast<int16_t>(axis_position[i] + std::clamp(difference, -kStep, kStep));
    }
    ++ticks;
    // An occasional bus error keeps the counter from being a constant.
    if (ticks % 50 == 0) ++i2c_errors;
    loops_per_second = static_cast<uint16_t>(995 + ticks % 11);
  }

  // Bit 4: ready; bit 0: motors on; bit 1: encoder calibration stored.
  uint8_t McpuState() const {
    return static_cast<uint8_t>(0x10 | (motors_on ? 0x01 : 0) | (calibration_stored ? 0x02 : 0));
  }
};

}  // namespace vyn::sim
