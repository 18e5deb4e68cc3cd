#include "vyn/device/command_helper.h"

#include <gtest/gtest.h>

#include <string>

#include "tests/support/test_frames.h"
#include "vyn/core/memory_controls.h"
#include "vyn/core/status.h"

namespace {

using vyn::test::Bytes;

class CommandHelperTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(helper_.FillRequest(&requests_), 0); }

  int32_t Choose(const std::string& request, int parameter, const std::string& value) {
    const std::vector<std::string> entries = requests_.GetEntries();
    const auto it = std::find(entries.begin(), entries.end(), request);
    EXPECT_NE(it, entries.end()) << request;
    requests_.SetCurSel(static_cast<int>(it - entries.begin()));
    const int32_t filled =
        helper_.FillParameters(&requests_, &parameter_label_, &parameters_, &value_label_, &value_);
    EXPECT_EQ(filled, 0);
    parameters_.SetCurSel(parameter);
    value_.SetWindowText(value);
    frame_.assign(1024, 0xEE);
    length_ = 0;
    return helper_.GetCurrentCommand(&requests_, &parameters_, &value_, frame_.data(), &length_);
  }

  Bytes Payload() const { return Bytes(frame_.begin() + 7, frame_.begin() + length_ - 1); }

  CVYNCommandHelper helper_;
  CMemoryComboBox requests_;
  CMemoryComboBox parameters_;
  CMemoryStatic parameter_label_;
  CMemoryStatic value_label_;
  CMemoryEdit value_;
  Bytes frame_;
  uint16_t length_ = 0;
};

TEST_F(CommandHelperTest, FillsTheRequestListAndAdjustsTheControls) {
  EXPECT_EQ(requests_.GetEntries().size(), 11u);
  EXPECT_EQ(requests_.GetWindowText(), "REQ_GET_DEVICE_INFO");
  EXPECT_EQ(requests_.GetEntries()[10], "REQ_CONTROL");

  EXPECT_EQ(Choose("REQ_DUMP_SETTINGS", -1, "junk"), 0);
  EXPECT_EQ(parameter_label_.GetWindowText(), "n/a");
  EXPECT_EQ(value_label_.GetWindowText(), "n/a");
  EXPECT_FALSE(parameters_.IsWindowEnabled());
  EXPECT_FALSE(value_.IsWindowEnabled());
  // Sequence number and checksum are left to the sender.
  EXPECT_EQ(Bytes(frame_.begin(), frame_.begin() + length_),
            (Bytes{0x42, 0x03, 0x00, 0x00, 0x00, 0xEE, 0xEE}));

  Choose("REQ_GET_STATUS", 0, "1");
  EXPECT_EQ(parameter_label_.GetWindowText(), "Property:");
  EXPECT_EQ(value_label_.GetWindowText(), "Update Rate:");
  EXPECT_EQ(parameters_.GetEntries(),
            (std::vector<std::string>{"ENCODER_AXIS_1", "ENCODER_AXIS_2", "ENCODER_AXIS_3",
                                      "ALL_MOTORS", "I2C_ERRORS", "LOOPS_PER_SECOND"}));
  EXPECT_TRUE(parameters_.IsWindowEnabled());
  EXPECT_TRUE(value_.IsWindowEnabled());

  Choose("REQ_CONTROL", 0, "1");
  EXPECT_EQ(value_label_.GetWindowText(), "Setpoint:");
  EXPECT_EQ(parameters_.GetEntries(), (std::vector<std::string>{"ALL_MOTORS", "UPDATE_FIRMWARE"}));

  requests_.SetCurSel(-1);
  EXPECT_EQ(
      helper_.FillParameters(&requests_, &parameter_label_, &parameters_, &value_label_, &value_),
      VYN_STATUS_NOT_FOUND);
  EXPECT_EQ(helper_.FillParameters(&requests_, nullptr, &parameters_, &value_label_, &value_),
            VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(helper_.FillRequest(nullptr), VYN_STATUS_INVALID_PARAMETER);
}

TEST_F(CommandHelperTest, BuildsTheChosenRequestWithTheValueActuallyUsed) {
  EXPECT_EQ(Choose("REQ_GET_STATUS", 5, "300"), 0);
  EXPECT_EQ(length_, 10);
  EXPECT_EQ(Payload(), (Bytes{0x1B, 0x2C}));
  EXPECT_EQ(value_.GetWindowText(), "44");

  EXPECT_EQ(Choose("REQ_GET_STATUS", 3, " -1x"), 0);
  EXPECT_EQ(Payload(), (Bytes{0xFF, 0xFF}));
  EXPECT_EQ(value_.GetWindowText(), "255");

  EXPECT_EQ(Choose("REQ_CONTROL", 1, "70000"), 0);
  EXPECT_EQ(length_, 11);
  EXPECT_EQ(Payload(), (Bytes{0x80, 0x70, 0x11}));
  EXPECT_EQ(value_.GetWindowText(), "4464");
  // Far beyond 32 bits the value is still the number modulo 65536.
  EXPECT_EQ(Choose("REQ_CONTROL", 1, "18446744073709551617"), 0);
  EXPECT_EQ(Payload(), (Bytes{0x80, 0x01, 0x00}));

  EXPECT_EQ(Choose("REQ_CONTROL", 0, "12"), VYN_STATUS_UNSPECIFIC_ERROR);
  EXPECT_EQ(value_.GetWindowText(), "12");
  EXPECT_EQ(frame_[0], 0xEE);

  EXPECT_EQ(Choose("REQ_GET_STATUS", 0, ""), VYN_STATUS_WRONG_FORMAT);
  EXPECT_EQ(Choose("REQ_CONTROL", 1, std::string(256, '1')), VYN_STATUS_WRONG_FORMAT);
  EXPECT_EQ(Choose("REQ_CONTROL", 1, std::string(255, '1')), 0);
  EXPECT_EQ(Choose("REQ_SET_ECPU_ENCODER_MIN_MAX", 0, ""), 0);
  EXPECT_EQ(length_, 16);
  EXPECT_EQ(helper_.GetCurrentCommand(&requests_, &parameters_, &value_, frame_.data(), nullptr),
            VYN_STATUS_INVALID_PARAMETER);
}

}  // namespace
