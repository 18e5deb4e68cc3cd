// Every request from builder to the frame the receiver hands over, and every
// reply and notification from the wire to its traffic-monitor line.
#include <gtest/gtest.h>

#include <functional>
#include <random>
#include <string>
#include <vector>

#include "tests/support/test_frames.h"
#include "vyn/device/command_dump.h"
#include "vyn/device/command_set.h"
#include "vyn/serial/frame_assembler.h"

namespace {

using vyn::test::Bytes;
using vyn::test::Cat;
using vyn::test::CcpuFrame;
using vyn::test::F32;
using vyn::test::Le16;
using vyn::test::Le32;
using vyn::test::McpuFrame;
using vyn::test::Text;

struct RequestCase {
  const char* name;
  std::function<uint16_t(CVYNCommandSet&, unsigned char*)> build;
  Bytes expected;  // the frame as sent with sequence number 1
};

std::vector<RequestCase> RequestCases() {
  const unsigned char status_ids[] = {5, 27};
  const unsigned char rates[] = {10, 1};
  const unsigned char control_ids[] = {128, 0, 6};
  const uint16_t control_values[] = {0x1234, 0xFFFE};
  using S = CVYNCommandSet;
  return {
      {"GetDeviceInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqGetDeviceInfo(f); },
       {0x42, 0x01, 0x00, 0x00, 0x00, 0x01, 0x02}},
      {"DumpSettings", [](S& s, unsigned char* f) { return s.PrepareReqDumpSettings(f); },
       CcpuFrame(0x0003, {})},
      {"GetECPUInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqGetECPUInfo(f); },
       {0x42, 0x01, 0x0B, 0x00, 0x00, 0x01, 0x0D}},
      {"GetKCPUInfo", [](S& s, unsigned char* f) { return s.PrepareReqGetKCPUInfo(f); },
       CcpuFrame(0x0A01, {})},
      {"SetECPUPWMZeroOffset",
       [](S& s, unsigned char* f) { return s.PrepareReqSetECPUPWMZeroOffset(f); },
       CcpuFrame(0x0B21, {0x00, 0x80, 0x00, 0x80})},
      {"SetECPUPWMMinMax", [](S& s, unsigned char* f) { return s.PrepareReqSetECPUPWMMinMax(f); },
       CcpuFrame(0x0B22, Bytes(16, 0))},
      {"GetECPUPWMCalibration",
       [](S& s, unsigned char* f) { return s.PrepareReqGetECPUPWMCalibration(f); },
       CcpuFrame(0x0B23, {})},
      {"SetECPUEncoderMinMax",
       [](S& s, unsigned char* f) { return s.PrepareReqSetECPUEncoderMinMax(f); },
       CcpuFrame(0x0B24, Bytes(8, 0))},
      {"GetECPUEncoderCalibration",
       [](S& s, unsigned char* f) { return s.PrepareReqGetECPUEncoderCalibration(f); },
       CcpuFrame(0x0B25, {})},
      {"GetStatus",
       [=](S& s, unsigned char* f) { return s.PrepareReqGetStatus(f, 2, status_ids, rates); },
       CcpuFrame(0x0002, {0x05, 0x0A, 0x1B, 0x01})},
      {"GetStatusEmpty",
       [=](S& s, unsigned char* f) { return s.PrepareReqGetStatus(f, 0, status_ids, rates); },
       CcpuFrame(0x0002, {})},
      {"Control",
       [=](S& s, unsigned char* f) {
         return s.PrepareReqControl(f, 3, control_ids, control_values);
       },
       CcpuFrame(0x0011, {0x80, 0x34, 0x12, 0x00, 0x06, 0xFE, 0xFF})},
      {"SetHardwareInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqSetHardwareInfo(f, 0x0102, "A", "7"); },
       CcpuFrame(0x0051, {0x02, 0x01, 0x41, 0x00, 0x37, 0x00})},
      {"GetHardwareInfo", [](S& s, unsigned char* f) { return s.PrepareReqGetHardwareInfo(f); },
       CcpuFrame(0x0052, {})},
      {"SetECPUHardwareInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqSetECPUHardwareInfo(f, 7, "", "SN"); },
       CcpuFrame(0x0B51, Cat({Le16(7), Text(""), Text("SN")}))},
      {"GetECPUHardwareInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqGetECPUHardwareInfo(f); },
       CcpuFrame(0x0B52, {})},
      {"SetProductionInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqSetProductionInfo(f, "2024-05-01", "ann"); },
       CcpuFrame(0x0053, Cat({Text("2024-05-01"), Text("ann")}))},
      {"GetProductionInfo", [](S& s, unsigned char* f) { return s.PrepareReqGetProductionInfo(f); },
       CcpuFrame(0x0054, {})},
      {"SetECPUProductionInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqSetECPUProductionInfo(f, "d", "u"); },
       CcpuFrame(0x0B53, Cat({Text("d"), Text("u")}))},
      {"GetECPUProductionInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqGetECPUProductionInfo(f); },
       CcpuFrame(0x0B54, {})},
      {"BoardInfo",
       [](S& s, unsigned char* f) { return s.PrepareReqBoardInfo(f); },
       {0x3E, 0x56, 0x00, 0x56, 0x00}},
      {"ReadParamsExt",
       [](S& s, unsigned char* f) { return s.PrepareReqReadParamsExt(f); },
       {0x3E, 0x21, 0x01, 0x22, 0x00, 0x00}},
      {"EncodersCalibFldOffset",
       [](S& s, unsigned char* f) { return s.PrepareReqEncodersCalibFldOffset(f); },
       McpuFrame(0x1B, {})},
      {"EncodersCalibOffset",
       [](S& s, unsigned char* f) { return s.PrepareReqEncodersCalibOffset(f); },
       McpuFrame(0x1A, {})},
      {"RealTimeData3", [](S& s, unsigned char* f) { return s.PrepareReqRealTimeData3(f); },
       McpuFrame(0x17, {})},
      {"MotorsOn", [](S& s, unsigned char* f) { return s.PrepareReqMotorsOn(f); },
       McpuFrame(0x45, {0x0B})},
      {"MotorsOff",
       [](S& s, unsigned char* f) { return s.PrepareReqMotorsOff(f); },
       {0x3E, 0x45, 0x01, 0x46, 0x0C, 0x0C}},
  };
}

struct ReplyCase {
  Bytes frame;
  std::string line;
};

std::vector<ReplyCase> CcpuReplies() {
  return {
      {CcpuFrame(0x4001, Cat({{0x01},
                              Le16(0x0102),
                              Text("HW1"),
                              Text("SN42"),
                              Text("M1"),
                              Text("E2"),
                              Text("C3"),
                              Text("K4"),
                              Text("L5")})),
       "CCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; 0; protocol version; 0x01; hardware "
       "type; 0x0102; hardware version; HW1; serial number; SN42; MCPU version; M1; ECPU "
       "version; E2; CCPU version; C3; KCPU version; K4; LCPU version; L5"},
      {CcpuFrame(0x4003, {0x00}), "CCPU_CMD_ID_ACK_DUMP_SETTINGS; internal status; 0; status; 0"},
      {CcpuFrame(0x4B01, Cat({{0x02}, Le16(0x1234), Text("E1.0")})),
       "ECPU_CMD_ID_REQ_GET_ECPU_INFO; internal status; 0; protocol version; 0x02; hardware "
       "type; 0x1234; ECPU version; E1.0"},
      {CcpuFrame(0x4A01, Cat({{0x03}, Le16(0x00AB), Text("K9")})),
       "KCPU_CMD_ID_REQ_GET_KCPU_INFO; internal status; 0; protocol version; 0x03; hardware "
       "type; 0x00AB; KCPU version; K9"},
      {CcpuFrame(0x4B21, Cat({{0x00}, F32(1.5F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Rocker; internal status; 0; Zero Offset: 1.5"},
      {CcpuFrame(0x4B21, Cat({{0x00}, F32(1.5F), F32(-2.3F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Joystick; internal status; 0; Zero Offset_1: "
       "1.5; Zero Offset_2: -2.3"},
      {CcpuFrame(0x4B22, Cat({{0x00}, F32(10.0F), F32(90.0F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX; Rocker; internal status; 0; DutyCycleMin: 10.0; "
       "DutyCycleMax: 90.0"},
      {CcpuFrame(0x4B22, Cat({{0x00}, F32(10.0F), F32(90.0F), F32(20.0F), F32(80.0F)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX; Joystick; internal status; 0; DutyCycleMin_1: "
       "10.0; DutyCycleMax_1: 90.0; DutyCycleMin_2: 20.0; DutyCycleMax_2: 80.0"},
      {CcpuFrame(0x4B23, Cat({{0x00, 0x01, 0x01}, F32(10.0F), F32(90.0F), F32(50.0F)})),
       "ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION; Rocker; internal status; 0; MinMaxCalibrated: "
       "1; ZeroCalibrated: 1; DutyCycleMin: 10.0; DutyCycleMax: 90.0; DutyCycleOffset: 50.0"},
      {CcpuFrame(0x4B23, Cat({{0x00, 0x01, 0x01},
                              F32(10.0F),
                              F32(90.0F),
                              F32(50.0F),
                              {0x01, 0x00},
                              F32(20.0F),
                              F32(80.0F),
                              F32(49.5F)})),
       "ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION; Joystick; internal status; 0; "
       "MinMaxCalibrated_1: 1; ZeroCalibrated_1: 1; DutyCycleMin_1: 10.0; DutyCycleMax_1: 90.0; "
       "DutyCycleOffset_1: 50.0; \r\n MinMaxCalibrated_2: 1; ZeroCalibrated_2: 0; "
       "DutyCycleMin_2: 20.0; DutyCycleMax_2: 80.0; DutyCycleOffset_2: 49.5"},
      {CcpuFrame(0x4B24, Cat({{0x00}, Le32(100), Le32(4000000000U)})),
       "ECPU_CMD_ID_ACK_SET_ECPU_ENCODER_MIN_MAX; Wheel; internal status; 0; Encoder1_Min: 100; "
       "Encoder1_Max: 4000000000"},
      {CcpuFrame(0x4B25, Cat({{0x00, 0x01}, Le32(100), Le32(4000)})),
       "ECPU_CMD_ID_ACK_GET_ECPU_ENCODER_CALIBRATION; Wheel; internal status; 0; "
       "Encoder1_Calibrated: 1; Encoder1_Min: 100; Encoder1_Max: 4000"},
      {CcpuFrame(0x4002, {0x00, 0x04}),
       "CCPU_CMD_ID_ACK_GET_STATUS; internal status; 0; status count; 2; status 1; "
       "STATUS_SUCCESS; status 2; STATUS_BUSY"},
      {CcpuFrame(0x4011, {0x03, 0x09, 0x01, 0x02, 0x7F}),
       "CCPU_CMD_ID_ACK_CONTROL; internal status; 0; status count; 5; status 1; "
       "STATUS_INVALID_PARAMETER; status 2; 9 - unknown status code; status 3; "
       "STATUS_INVALID_LENGTH; status 4; STATUS_INVALID_CHECKSUM; status 5; STATUS_GENERAL_ERROR"},
      {CcpuFrame(0x4051, {0x00}),
       "CCPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; 0; status; 0"},
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
      // Axis values are signed 16-bit, I2C errors 32-bit, loops 16-bit.
      {CcpuFrame(0x8002, {0x05, 0x00, 0x10, 0x1B, 0xE8, 0x03, 0x1A, 0x07, 0x00, 0x00, 0x00, 0x06,
                          0x00, 0xF0, 0x03}),
       "CCPU_CMD_ID_NOT_STATUS; internal status; 0; property count; 5; Encoder Axis 1; 90.000; "
       "degrees; Loops per Second; 1000; I2C Errors; 7; Encoder Axis 2; -90.000; degrees; 3 - "
       "unknown property; 3 - unknown property"},
      {CcpuFrame(0xBFFF, {0x02, 0x01, 0x03, 'o', 'k'}),
       "CCPU_CMD_ID_NOT_DEBUG; internal status; 0; source; 0x0102; priority; 0x03; text; ok"},
      {CcpuFrame(0xBAFF, {0xFF, 0xFF, 0x00, 'x'}),
       "CCPU_CMD_ID_NOT_DEBUG; internal status; 0; source; 0xFFFF; priority; 0x00; text; x"},
      {CcpuFrame(0xBBFF, {0x00, 0x00, 0x09}),
       "CCPU_CMD_ID_NOT_DEBUG; internal status; -27; source; 0x0000; priority; 0x00; text; "},
  };
}

std::vector<ReplyCase> McpuReplies() {
  Bytes board(18, 0);
  board[3] = 0x05;
  const Bytes version = Le32(30205);
  std::copy(version.begin(), version.end(), board.begin() + 7);
  Bytes params(40, 0);
  const Bytes triples = Cat({Le16(1), Le16(2), Le16(3), Le16(0xFFFF), Le16(0xFFFE), Le16(0xFFFD)});
  std::copy(triples.begin(), triples.end(), params.begin() + 28);
  return {
      {McpuFrame(0x56, board),
       "MCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; 0; MCPU state; 0x05; MCPU version; V "
       "02.01.04;"},
      {McpuFrame(0x21, params),
       "MCPU_CMD_ID_READ_ENCODER_CALIBRATION; internal status; 0; EFO; -1; -2; -3; zero; 1; 2; 3"},
      {McpuFrame(0x43, {0x45, 0x01}), "MCPU_CMD_ID_CHANGE_MOTORS; 1"},
      {McpuFrame(0x43, {0x1A}), "MCPU_CMD_ID_CALIBRATE_ZERO"},
      {McpuFrame(0x43, {0x1B, 0x34, 0x12}), "MCPU_CMD_ID_CALIBRATE_EFO; 4660"},
      {McpuFrame(0x43, {0x22}), "MCPU_CMD_ID_WRITE_ENCODER_CALIBRATION"},
  };
}

// Feeds `stream` in pieces of random size and returns the frames handed over.
std::vector<Bytes> Assemble(uint16_t protocol, const Bytes& stream, std::mt19937& random,
                            size_t max_piece) {
  std::vector<Bytes> frames;
  CVYNFrameAssembler assembler([&](const unsigned char* frame, uint16_t length) {
    frames.emplace_back(frame, frame + length);
  });
  EXPECT_EQ(assembler.SetProtocol(protocol), 0);
  size_t offset = 0;
  uint32_t tick = 1;
  while (offset < stream.size()) {
    const size_t piece = std::min(stream.size() - offset,
                                  std::uniform_int_distribution<size_t>(1, max_piece)(random));
    assembler.Feed(stream.data() + offset, piece, tick++);
    offset += piece;
  }
  EXPECT_EQ(assembler.GetStatistics().bytes_received, stream.size());
  EXPECT_EQ(assembler.GetStatistics().isd + assembler.GetStatistics().ihcs +
                assembler.GetStatistics().ipcs + assembler.GetStatistics().too_long,
            0u);
  return frames;
}

TEST(RoundTripTest, EveryRequestLeavesTheSenderAsWrittenAndIsReassembled) {
  std::mt19937 random(20240501);
  for (const RequestCase& request : RequestCases()) {
    SCOPED_TRACE(request.name);
    CVYNCommandSet command_set;
    unsigned char frame[1024] = {};
    const uint16_t length = request.build(command_set, frame);
    ASSERT_EQ(length, request.expected.size());
    ASSERT_EQ(command_set.CalculateChecksums(frame), 0);
    EXPECT_EQ(Bytes(frame, frame + length), request.expected);

    const uint16_t protocol = frame[0] == 0x42 ? PROTOCOL_CCPU : PROTOCOL_MCPU;
    for (size_t max_piece : {size_t{1}, size_t{3}, size_t{64}}) {
      const std::vector<Bytes> frames = Assemble(protocol, request.expected, random, max_piece);
      ASSERT_EQ(frames.size(), 1u);
      EXPECT_EQ(frames[0], request.expected);
    }
  }
}

void ExpectRepliesRoundTrip(uint16_t protocol, const std::vector<ReplyCase>& replies) {
  Bytes stream;
  for (const ReplyCase& reply : replies)
    stream.insert(stream.end(), reply.frame.begin(), reply.frame.end());
  std::mt19937 random(7);
  for (size_t max_piece : {size_t{1}, size_t{5}, size_t{200}, stream.size()}) {
    SCOPED_TRACE(max_piece);
    const std::vector<Bytes> frames = Assemble(protocol, stream, random, max_piece);
    ASSERT_EQ(frames.size(), replies.size());
    CVYNCommandDump dump;
    for (size_t i = 0; i < replies.size(); ++i) {
      EXPECT_EQ(frames[i], replies[i].frame);
      unsigned char record[1024] = {};
      std::copy(frames[i].begin(), frames[i].end(), record);
      dump.ClearCommandDump();
      EXPECT_EQ(dump.DumpAcknowledgeOrNotification(record), 0);
      EXPECT_EQ(std::string(dump.GetCommandDump()), replies[i].line);
    }
  }
}

TEST(RoundTripTest, EveryCcpuReplyAndNotificationRendersItsLine) {
  ExpectRepliesRoundTrip(PROTOCOL_CCPU, CcpuReplies());
}

TEST(RoundTripTest, EveryMcpuReplyRendersItsLine) {
  ExpectRepliesRoundTrip(PROTOCOL_MCPU, McpuReplies());
}

}  // namespace
