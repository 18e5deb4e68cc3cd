// Every command from its builder through the sender's checksums, every
// reply through its parser to its traffic-monitor line; every reply cut
// short or lying about its length; the sender's own limits.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <numeric>
#include <string>
#include <vector>

#include "tests/support/test_frames.h"
#include "vyn/core/status.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/command_set.h"

namespace {

using vyn::test::Bytes;
using vyn::test::Cat;
using vyn::test::CcpuFrame;
using vyn::test::F32;
using vyn::test::Le16;
using vyn::test::Le32;
using vyn::test::McpuFrame;
using vyn::test::Record;
using vyn::test::Text;
using S = CVYNCommandSet;

// A request as its builder writes it, sent with sequence number 1.
struct Request {
  std::function<uint16_t(S&, unsigned char*)> build;
  Bytes frame;
};

// A reply or notification and the line the dump renders for it.
struct Reply {
  Bytes frame;
  std::string line;
  std::vector<size_t> also_valid = {};  // shorter payloads that are replies in their own right
};

std::vector<Request> Requests() {
  static const unsigned char ids[] = {5, 27};
  static const unsigned char rates[] = {10, 1};
  static const unsigned char control_ids[] = {128, 0, 6};
  static const uint16_t values[] = {0x1234, 0xFFFE};
  return {
      {&S::PrepareReqGetDeviceInfo, {0x42, 0x01, 0x00, 0x00, 0x00, 0x01, 0x02}},
      {&S::PrepareReqDumpSettings, CcpuFrame(0x0003, {})},
      {&S::PrepareReqGetECPUInfo, {0x42, 0x01, 0x0B, 0x00, 0x00, 0x01, 0x0D}},
      {&S::PrepareReqGetKCPUInfo, CcpuFrame(0x0A01, {})},
      {&S::PrepareReqSetECPUPWMZeroOffset, CcpuFrame(0x0B21, {0x00, 0x80, 0x00, 0x80})},
      {&S::PrepareReqSetECPUPWMMinMax, CcpuFrame(0x0B22, Bytes(16, 0))},
      {&S::PrepareReqGetECPUPWMCalibration, CcpuFrame(0x0B23, {})},
      {&S::PrepareReqSetECPUEncoderMinMax, CcpuFrame(0x0B24, Bytes(8, 0))},
      {&S::PrepareReqGetECPUEncoderCalibration, CcpuFrame(0x0B25, {})},
      {[](S& s, unsigned char* f) { return s.PrepareReqGetStatus(f, 2, ids, rates); },
       CcpuFrame(0x0002, {0x05, 0x0A, 0x1B, 0x01})},
      {[](S& s, unsigned char* f) { return s.PrepareReqGetStatus(f, 0, ids, rates); },
       CcpuFrame(0x0002, {})},
      {[](S& s, unsigned char* f) { return s.PrepareReqControl(f, 3, control_ids, values); },
       CcpuFrame(0x0011, {0x80, 0x34, 0x12, 0x00, 0x06, 0xFE, 0xFF})},
      {[](S& s, unsigned char* f) { return s.PrepareReqSetHardwareInfo(f, 0x0102, "A", "7"); },
       CcpuFrame(0x0051, {0x02, 0x01, 0x41, 0x00, 0x37, 0x00})},
      {&S::PrepareReqGetHardwareInfo, CcpuFrame(0x0052, {})},
      {[](S& s, unsigned char* f) { return s.PrepareReqSetECPUHardwareInfo(f, 7, "", "SN"); },
       CcpuFrame(0x0B51, Cat({Le16(7), Text(""), Text("SN")}))},
      {&S::PrepareReqGetECPUHardwareInfo, CcpuFrame(0x0B52, {})},
      {[](S& s, unsigned char* f) { return s.PrepareReqSetProductionInfo(f, "2024-05-01", "ann"); },
       CcpuFrame(0x0053, Cat({Text("2024-05-01"), Text("ann")}))},
      {&S::PrepareReqGetProductionInfo, CcpuFrame(0x0054, {})},
      {[](S& s, unsigned char* f) { return s.PrepareReqSetECPUProductionInfo(f, "d", "u"); },
       CcpuFrame(0x0B53, Cat({Text("d"), Text("u")}))},
      {&S::PrepareReqGetECPUProductionInfo, CcpuFrame(0x0B54, {})},
      {&S::PrepareReqBoardInfo, {0x3E, 0x56, 0x00, 0x56, 0x00}},
      {&S::PrepareReqReadParamsExt, {0x3E, 0x21, 0x01, 0x22, 0x00, 0x00}},
      {&S::PrepareReqEncodersCalibFldOffset, McpuFrame(0x1B, {})},
      {&S::PrepareReqEncodersCalibOffset, McpuFrame(0x1A, {})},
      {&S::PrepareReqRealTimeData3, McpuFrame(0x17, {})},
      {&S::PrepareReqMotorsOn, McpuFrame(0x45, {0x0B})},
      {&S::PrepareReqMotorsOff, {0x3E, 0x45, 0x01, 0x46, 0x0C, 0x0C}},
  };
}

std::vector<Reply> Replies() {
  Bytes board(18, 0);
  board[3] = 0x05;
  const Bytes version = Le32(30205);
  std::copy(version.begin(), version.end(), board.begin() + 7);
  const Bytes triples = Cat({Le16(1), Le16(2), Le16(3), Le16(0xFFFF), Le16(0xFFFE), Le16(0xFFFD)});
  const Bytes info =
      Cat({Text("HW1"), Text("SN42"), Text("M1"), Text("E2"), Text("C3"), Text("K4"), Text("L5")});
  const Bytes channel_1 = Cat({{0x00, 0x01, 0x01}, F32(10.0F), F32(90.0F), F32(50.0F)});
  return {
      {CcpuFrame(0x4001, Cat({{0x01, 0x02, 0x01}, info})),
       "CCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; 0; protocol version; 0x01; hardware "
       "type; 0x0102; hardware version; HW1; serial number; SN42; MCPU version; M1; ECPU "
       "version; E2; CCPU version; C3; KCPU version; K4; LCPU version; L5"},
      {CcpuFrame(0x4003, {0x00}), "CCPU_CMD_ID_ACK_DUMP_SETTINGS; internal status; 0; status; 0"},
      {CcpuFrame(0x4B01, Cat({{0x02, 0x34, 0x12}, Text("E1.0")})),
       "ECPU_CMD_ID_REQ_GET_ECPU_INFO; internal status; 0; protocol version; 0x02; hardware "
       "type; 0x1234; ECPU version; E1.0"},
      {CcpuFrame(0x4A01, Cat({{0x03, 0xAB, 0x00}, Text("K9")})),
       "KCPU_CMD_ID_REQ_GET_KCPU_INFO; internal status; 0; protocol version; 0x03; hardware "
       "type; 0x00AB; KCPU version; K9"},
      // Seven bytes: the long form, its second value cut off and left alone;
      // the rocker's reply after it must not keep the flag.
      {CcpuFrame(0x4B21, Cat({{0x00}, F32(6.5F), {1, 2}})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Joystick; internal status; -27; Zero Offset_1: "
       "6.5; Zero Offset_2: 0.0",
       {5}},
      {CcpuFrame(0x4B21, Cat({{0x00}, F32(1.5F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Rocker; internal status; 0; Zero Offset: 1.5"},
      {CcpuFrame(0x4B21, Cat({{0x00}, F32(1.5F), F32(-2.3F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Joystick; internal status; 0; Zero Offset_1: "
       "1.5; Zero Offset_2: -2.3",
       {5}},
      {CcpuFrame(0x4B22, Cat({{0x00}, F32(10.0F), F32(90.0F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX; Rocker; internal status; 0; DutyCycleMin: 10.0; "
       "DutyCycleMax: 90.0"},
      {CcpuFrame(0x4B22, Cat({{0x00}, F32(10.0F), F32(90.0F), F32(20.0F), F32(80.0F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX; Joystick; internal status; 0; DutyCycleMin_1: "
       "10.0; DutyCycleMax_1: 90.0; DutyCycleMin_2: 20.0; DutyCycleMax_2: 80.0",
       {9}},
      {CcpuFrame(0x4B23, channel_1),
       "ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION; Rocker; internal status; 0; MinMaxCalibrated: "
       "1; ZeroCalibrated: 1; DutyCycleMin: 10.0; DutyCycleMax: 90.0; DutyCycleOffset: 50.0"},
      {CcpuFrame(0x4B23, Cat({channel_1, {0x01, 0x00}, F32(20.0F), F32(80.0F), F32(49.5F)})),
       "ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION; Joystick; internal status; 0; "
       "MinMaxCalibrated_1: 1; ZeroCalibrated_1: 1; DutyCycleMin_1: 10.0; DutyCycleMax_1: 90.0; "
       "DutyCycleOffset_1: 50.0; \r\n MinMaxCalibrated_2: 1; ZeroCalibrated_2: 0; "
       "DutyCycleMin_2: 20.0; DutyCycleMax_2: 80.0; DutyCycleOffset_2: 49.5",
       {15}},
      {CcpuFrame(0x4B24, Cat({{0x00}, Le32(100), Le32(4000000000U)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_ENCODER_MIN_MAX; Wheel; internal status; 0; Encoder1_Min: 100; "
       "Encoder1_Max: 4000000000"},
      {CcpuFrame(0x4B25, Cat({{0x00, 0x01}, Le32(100), Le32(4000)})),
       "ECPU_CMD_ID_ACK_GET_ECPU_ENCODER_CALIBRATION; Wheel; internal status; 0; "
       "Encoder1_Calibrated: 1; Encoder1_Min: 100; Encoder1_Max: 4000"},
      {CcpuFrame(0x4002, {0x00, 0x04}),
       "CCPU_CMD_ID_ACK_GET_STATUS; internal status; 0; status count; 2; status 1; "
       "STATUS_SUCCESS; status 2; STATUS_BUSY",
       {0, 1}},
      {CcpuFrame(0x4011, {0x03, 0x09, 0x01, 0x02, 0x7F}),
       "CCPU_CMD_ID_ACK_CONTROL; internal status; 0; status count; 5; status 1; "
       "STATUS_INVALID_PARAMETER; status 2; 9 - unknown status code; status 3; "
       "STATUS_INVALID_LENGTH; status 4; STATUS_INVALID_CHECKSUM; status 5; STATUS_GENERAL_ERROR",
       {0, 1, 2, 3, 4}},
      {CcpuFrame(0x4051, {0x00}),
       "CCPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; 0; status; 0"},
      // Two bytes: wrong, but the status is delivered all the same.
      {CcpuFrame(0x4051, {0x07, 0x00}),
       "CCPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; -27; status; 7",
       {1}},
      {CcpuFrame(0x4052, Cat({Le16(0x0102), Text("A"), Text("7")})),
       "CCPU_CMD_ID_ACK_GET_HARDWARE_INFO; internal status; 0; hardware type; 0x0102; hardware "
       "version; A; serial number; 7"},
      {CcpuFrame(0x4B51, {0x7F}),
       "ECPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; 0; status; 127"},
      {CcpuFrame(0x4B52, Cat({Le16(0xBEEF), Text("rev C"), Text("0042")})),
       "ECPU_CMD_ID_ACK_GET_HARDWARE_INFO; internal status; 0; hardware type; 0xBEEF; hardware "
       "version; rev C; serial number; 0042"},
      {CcpuFrame(0x4053, {0x01}),
       "CCPU_CMD_ID_ACK_SET_PRODUCTION_INFO; internal status; 0; status; 1"},
      {CcpuFrame(0x4054, Cat({Text("2024-05-01"), Text("anna")})),
       "CCPU_CMD_ID_ACK_GET_PRODUCTION_INFO; internal status; 0; production date; 2024-05-01; "
       "production user; anna"},
      {CcpuFrame(0x4B53, {0x04}),
       "ECPU_CMD_ID_ACK_SET_PRODUCTION_INFO; internal status; 0; status; 4"},
      {CcpuFrame(0x4B54, Cat({Text("15"), Text("")})),
       "ECPU_CMD_ID_ACK_GET_PRODUCTION_INFO; internal status; 0; production date; 15; production "
       "user; "},
      // Two texts in three bytes, but four is the least such a reply has.
      {CcpuFrame(0x4B54, {'x', 0, 0}),
       "ECPU_CMD_ID_ACK_GET_PRODUCTION_INFO; internal status; -27; production date; ; production "
       "user; "},
      // Axis values are signed 16-bit, I2C errors 32-bit, loops 16-bit.
      {CcpuFrame(0x8002, {0x05, 0x00, 0x10, 0x1B, 0xFF, 0xFF, 0x1A, 0x01, 0x00, 0x00, 0x01, 0x06,
                          0x00, 0xF0, 0x07, 0x01, 0x00, 0x03}),
       "CCPU_CMD_ID_NOT_STATUS; internal status; 0; property count; 6; Encoder Axis 1; 90.000; "
       "degrees; Loops per Second; 65535; I2C Errors; 16777217; Encoder Axis 2; -90.000; "
       "degrees; Encoder Axis 3; 0.022; degrees; 3 - unknown property; 3 - unknown property",
       {0, 3, 6, 11, 14, 17}},
      {CcpuFrame(0x8002, {}), "CCPU_CMD_ID_NOT_STATUS; internal status; 0; property count; 0"},
      // An I2C count whose four bytes are not all there is not taken.
      {CcpuFrame(0x8002, {0x80, 0x1A, 0x01, 0x02}),
       "CCPU_CMD_ID_NOT_STATUS; internal status; -27; property count; 1; Update Firmware; 128 - "
       "unknown property",
       {0, 1}},
      {CcpuFrame(0xBFFF, {0x02, 0x01, 0x03, 'o', 'k'}),
       "CCPU_CMD_ID_NOT_DEBUG; internal status; 0; source; 0x0102; priority; 0x03; text; ok",
       {4}},
      {CcpuFrame(0xBAFF, {0xFF, 0xFF, 0x00, 'x'}),
       "CCPU_CMD_ID_NOT_DEBUG; internal status; 0; source; 0xFFFF; priority; 0x00; text; x"},
      {CcpuFrame(0xBBFF, {0x00, 0x00, 0x09}),
       "CCPU_CMD_ID_NOT_DEBUG; internal status; -27; source; 0x0000; priority; 0x00; text; "},
      {McpuFrame(0x56, board),
       "MCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; 0; MCPU state; 0x05; MCPU version; V "
       "02.01.04;"},
      {McpuFrame(0x21, Cat({Bytes(28, 0), triples})),
       "MCPU_CMD_ID_READ_ENCODER_CALIBRATION; internal status; 0; EFO; -1; -2; -3; zero; 1; 2; 3"},
      {McpuFrame(0x43, {0x45, 0x01}), "MCPU_CMD_ID_CHANGE_MOTORS; 1"},
      {McpuFrame(0x43, {0x1A}), "MCPU_CMD_ID_CALIBRATE_ZERO"},
      {McpuFrame(0x43, {0x1B, 0x34, 0x12}), "MCPU_CMD_ID_CALIBRATE_EFO; 4660"},
      {McpuFrame(0x43, {0x22}), "MCPU_CMD_ID_WRITE_ENCODER_CALIBRATION"},
  };
}

TEST(RoundTripTest, EveryCommandGoesFromBuilderToWireToLine) {
  for (const Request& request : Requests()) {
    S command_set;
    Record frame;
    frame.fill(0xEE);  // a byte that neither builder nor checksums write shows
    const uint16_t length = request.build(command_set, frame.data());
    ASSERT_EQ(command_set.CalculateChecksums(frame.data()), 0);
    EXPECT_EQ(Bytes(frame.begin(), frame.begin() + length), request.frame);
  }
  const std::vector<Reply> replies = Replies();
  // One dump for all: a line must not depend on the one before.
  CVYNCommandDump dump;
  for (const Reply& reply : replies) {
    Record record = vyn::test::ToRecord(reply.frame);
    dump.ClearCommandDump();
    EXPECT_EQ(dump.DumpAcknowledgeOrNotification(record.data()), 0);
    EXPECT_EQ(std::string(dump.GetCommandDump()), reply.line);
  }
}

// The line for `reply` with its payload declared `n` bytes long and every
// byte behind those set to `fill`.
std::string LineCutTo(const Bytes& reply, size_t n, unsigned char fill) {
  const bool ccpu = reply[0] == 0x42;
  Record record;
  record.fill(fill);
  std::copy_n(reply.begin(), std::min(reply.size(), (ccpu ? 7 : 4) + n), record.begin());
  record[ccpu ? 3 : 2] = static_cast<unsigned char>(n & 0xFF);
  if (ccpu) record[4] = static_cast<unsigned char>(n >> 8);
  CVYNCommandDump dump;
  dump.DumpAcknowledgeOrNotification(record.data());
  return dump.GetCommandDump();
}

TEST(RoundTripTest, ShortAndLyingPayloadsAreRefusedWithoutReadingBeyondThem) {
  for (const Reply& reply : Replies()) {
    const bool ccpu = reply.frame[0] == 0x42;
    const size_t full = ccpu ? reply.frame[3] | reply.frame[4] << 8 : reply.frame[2];
    std::vector<size_t> lengths(full);
    std::iota(lengths.begin(), lengths.end(), 0);
    // More than any received frame can carry.
    if (ccpu) lengths.insert(lengths.end(), {1016, 1017, 0xFFFF});
    for (const size_t n : lengths) {
      SCOPED_TRACE(testing::Message() << reply.line.substr(0, 50) << " cut to " << n);
      const std::string line = LineCutTo(reply.frame, n, 0x00);
      // Whatever a parser reads behind the payload shows as a difference here.
      EXPECT_EQ(line, LineCutTo(reply.frame, n, 0xA5));
      const size_t at = line.find("internal status; ");
      if (at == std::string::npos) continue;  // confirmations show no result
      const int result = std::stoi(line.substr(at + 17));
      const auto& valid = reply.also_valid;
      EXPECT_EQ(result == 0, std::find(valid.begin(), valid.end(), n) != valid.end());
      if (n > full) {
        EXPECT_EQ(result, RX_WRONG_LENGTH);
      }
    }
  }
}

TEST(RoundTripTest, SequenceNumbersAndTheSendersLimits) {
  S command_set;
  Record frame{};
  for (int round = 1; round <= 256; ++round) {
    command_set.PrepareReqGetDeviceInfo(frame.data());
    ASSERT_EQ(command_set.CalculateChecksums(frame.data()), 0);
    // 1 to 255, then 1 again; MCPU frames carry none and do not count.
    ASSERT_EQ(frame[5], round == 256 ? 1 : round);
    ASSERT_EQ(frame[6], (0x01 + frame[5]) & 0xFF);
    command_set.PrepareReqMotorsOn(frame.data());
    ASSERT_EQ(command_set.CalculateChecksums(frame.data()), 0);
  }

  Record unknown = vyn::test::ToRecord({0x41, 1, 2, 3, 4, 5, 6, 7}, 0x77);
  const Record before = unknown;
  EXPECT_EQ(command_set.CalculateChecksums(unknown.data()), VYN_STATUS_NOT_IMPLEMENTED);
  EXPECT_EQ(unknown, before);
  // The largest payload a receiver takes, and one byte more.
  Record largest = vyn::test::ToRecord(CcpuFrame(0x4002, Bytes(1015, 3), 0));
  EXPECT_EQ(command_set.CalculateChecksums(largest.data()), 0);
  EXPECT_EQ(Bytes(largest.begin(), largest.begin() + 1023), CcpuFrame(0x4002, Bytes(1015, 3), 2));
  Record too_long = vyn::test::ToRecord(CcpuFrame(0x4002, Bytes(1016, 3), 0));
  const Record untouched = too_long;
  EXPECT_EQ(command_set.CalculateChecksums(too_long.data()), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(too_long, untouched);

  // Texts are cut to 254 characters and end at their first zero.
  frame.fill(0);
  const uint16_t length = command_set.PrepareReqSetProductionInfo(
      frame.data(), std::string(300, 'a'), std::string("us\0er", 5));
  EXPECT_EQ(length, 7 + 255 + 3 + 1);
  EXPECT_EQ(frame[3] | (frame[4] << 8), 258);
  EXPECT_EQ(Bytes(frame.begin() + 7 + 253, frame.begin() + 7 + 258), (Bytes{'a', 0, 'u', 's', 0}));
}

}  // namespace
