#include <gtest/gtest.h>

#include <string>

#include "tests/device/parser_cases.h"
#include "tests/support/test_frames.h"
#include "vyn/core/status.h"
#include "vyn/device/command_set.h"

namespace {

using vyn::test::AllParsers;
using vyn::test::Bytes;
using vyn::test::Cat;
using vyn::test::CcpuFrame;
using vyn::test::F32;
using vyn::test::Le16;
using vyn::test::Le32;
using vyn::test::McpuFrame;
using vyn::test::ParserRun;
using vyn::test::Record;
using vyn::test::Text;
using vyn::test::ToRecord;

// Shows the two-channel flag that the ECPU PWM parsers leave behind.
class ProbedCommandSet : public CVYNCommandSet {
 public:
  using CVYNCommandSet::HasTwoChannels;
};

// Declares `length` payload bytes in the header of a record, whatever it holds.
void DeclarePayload(Record& record, bool mcpu, uint16_t length) {
  if (mcpu) {
    record[2] = static_cast<unsigned char>(length);
  } else {
    record[3] = static_cast<unsigned char>(length & 0xFF);
    record[4] = static_cast<unsigned char>(length >> 8);
  }
}

// Runs the parser twice, with everything behind the declared payload set to
// two different fills: a parser that reads past the payload shows it here.
ParserRun RunConfined(const vyn::test::ParserCase& parser, Record record) {
  const size_t payload_start = parser.mcpu ? 4 : 7;
  const size_t payload_length = parser.mcpu ? record[2] : (record[3] | (record[4] << 8));
  const size_t end = std::min(record.size(), payload_start + payload_length);
  Record other = record;
  for (size_t i = end; i < record.size(); ++i) {
    record[i] = 0x00;
    other[i] = 0xA5;
  }
  CVYNCommandSet first_set;
  CVYNCommandSet second_set;
  const ParserRun first = parser.run(first_set, record.data());
  const ParserRun second = parser.run(second_set, other.data());
  EXPECT_EQ(first, second) << parser.name << " read past a payload of " << payload_length;
  return first;
}

TEST(CommandParsersTest, TruncatedAndLyingPayloadsGiveResultsWithoutReadingBeyond) {
  // A well-formed reply of each kind; every shorter declared length is tried.
  const Bytes board(18, 0x11);
  const Bytes params(40, 0x22);
  const Bytes realtime(63, 0x33);
  const std::vector<std::pair<const char*, Bytes>> replies = {
      {"GetDeviceInfo", CcpuFrame(0x4001, Cat({{1, 2, 1},
                                               Text("a"),
                                               Text("b"),
                                               Text("c"),
                                               Text("d"),
                                               Text("e"),
                                               Text("f"),
                                               Text("g")}))},
      {"DumpSettings", CcpuFrame(0x4003, {0})},
      {"GetECPUInfo", CcpuFrame(0x4B01, Cat({{1, 2, 3}, Text("v1")}))},
      {"GetKCPUInfo", CcpuFrame(0x4A01, Cat({{1, 2, 3}, Text("v1")}))},
      {"SetECPUPWMZeroOffset", CcpuFrame(0x4B21, Cat({{0}, F32(1), F32(2)}))},
      {"SetECPUPWMMinMax", CcpuFrame(0x4B22, Cat({{0}, F32(1), F32(2), F32(3), F32(4)}))},
      {"GetECPUPWMCalibration",
       CcpuFrame(0x4B23, Cat({{0, 1, 1}, F32(1), F32(2), F32(3), {1, 1}, F32(4), F32(5), F32(6)}))},
      {"SetECPUEncoderMinMax", CcpuFrame(0x4B24, Cat({{0}, Le32(1), Le32(2)}))},
      {"GetECPUEncoderCalibration", CcpuFrame(0x4B25, Cat({{0, 1}, Le32(1), Le32(2)}))},
      {"GetStatus", CcpuFrame(0x4002, {0, 1, 2})},
      {"Control", CcpuFrame(0x4011, {0, 1, 2})},
      {"SetHardwareInfo", CcpuFrame(0x4051, {0})},
      {"GetHardwareInfo", CcpuFrame(0x4052, Cat({Le16(1), Text("x"), Text("y")}))},
      {"SetECPUHardwareInfo", CcpuFrame(0x4B51, {0})},
      {"GetECPUHardwareInfo", CcpuFrame(0x4B52, Cat({Le16(1), Text("x"), Text("y")}))},
      {"SetProductionInfo", CcpuFrame(0x4053, {0})},
      {"GetProductionInfo", CcpuFrame(0x4054, Cat({Text("xy"), Text("z")}))},
      {"SetECPUProductionInfo", CcpuFrame(0x4B53, {0})},
      {"GetECPUProductionInfo", CcpuFrame(0x4B54, Cat({Text("xy"), Text("z")}))},
      {"NotStatus", CcpuFrame(0x8002, {5, 1, 2, 26, 1, 2, 3, 4, 27, 1, 2, 9})},
      {"NotTrace", CcpuFrame(0xBFFE, {1, 2, 3, 4})},
      {"NotDebug", CcpuFrame(0xBFFF, {1, 2, 3, 'h', 'i'})},
      {"BoardInfo", McpuFrame(0x56, board)},
      {"ReadParamsExt", McpuFrame(0x21, params)},
      {"RealtimeData3", McpuFrame(0x17, realtime)},
      {"Confirm", McpuFrame(0x43, {0x45, 1})},
  };
  const auto parsers = AllParsers();
  ASSERT_EQ(parsers.size(), replies.size());
  for (size_t p = 0; p < parsers.size(); ++p) {
    const auto& parser = parsers[p];
    SCOPED_TRACE(parser.name);
    ASSERT_STREQ(parser.name, replies[p].first);
    Record record = ToRecord(replies[p].second);
    EXPECT_EQ(RunConfined(parser, record).result, 0);
    const uint16_t full = parser.mcpu ? record[2] : (record[3] | (record[4] << 8));
    // The shorter payloads that are replies in their own right: the
    // one-channel forms, shorter lists, traces and texts.
    const std::string name = parser.name;
    const auto also_valid = [&name](uint16_t n) {
      if (name == "GetStatus" || name == "Control") return true;
      // Entry boundaries of 5 (2 bytes), 26 (4 bytes), 27 (2 bytes), 9 (none).
      if (name == "NotStatus") return n == 0 || n == 3 || n == 8 || n == 11;
      if (name == "SetECPUPWMZeroOffset") return n == 5;
      if (name == "SetECPUPWMMinMax") return n == 9;
      if (name == "GetECPUPWMCalibration") return n == 15;
      if (name == "NotTrace") return n > 0 && n % 2 == 0;
      if (name == "NotDebug") return n >= 4;
      if (name == "Confirm") return n >= 1;
      return false;
    };
    for (uint16_t length = 0; length < full; ++length) {
      SCOPED_TRACE(length);
      DeclarePayload(record, parser.mcpu, length);
      const ParserRun run = RunConfined(parser, record);
      EXPECT_EQ(run.result == 0, also_valid(length));
    }
    if (!parser.mcpu) {
      // A header that claims more than any received frame can carry.
      for (uint16_t length : {uint16_t{1016}, uint16_t{1017}, uint16_t{0xFFFF}}) {
        DeclarePayload(record, false, length);
        CVYNCommandSet command_set;
        EXPECT_EQ(parser.run(command_set, record.data()).result, RX_WRONG_LENGTH) << length;
      }
    }
  }
}

TEST(CommandParsersTest, TextsAreCutOrRefusedAndTheLayoutIsChecked) {
  CVYNCommandSet command_set;
  unsigned char version = 0;
  uint16_t type = 0;
  std::string t[7];
  auto parse = [&](const Bytes& payload, unsigned char size) {
    Record record = ToRecord(CcpuFrame(0x4001, payload), 'Z');
    for (std::string& text : t) text = "old";
    return command_set.ProcessAckGetDeviceInfo(record.data(), &version, &type, &t[0], &t[1], &t[2],
                                               &t[3], &t[4], &t[5], &t[6], size);
  };
  // Three bytes and seven empty texts.
  EXPECT_EQ(parse({9, 0x34, 0x12, 0, 0, 0, 0, 0, 0, 0}, 32), 0);
  EXPECT_EQ(version, 9);
  EXPECT_EQ(type, 0x1234);
  for (const std::string& text : t) EXPECT_EQ(text, "");

  const std::string forty(40, 'v');
  EXPECT_EQ(parse(Cat({{1, 0, 0},
                       Text(forty),
                       Text("s"),
                       Text(""),
                       Text(""),
                       Text(""),
                       Text(""),
                       Text("L")}),
                  32),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(t[0], forty.substr(0, 31));
  EXPECT_EQ(t[1], "s");
  EXPECT_EQ(t[6], "L");

  // The last text is not terminated inside the payload: the bytes behind it
  // ('Z', and the checksum) are not taken for its end.
  EXPECT_EQ(parse({1, 0, 0, 0, 0, 0, 0, 0, 0, 'a', 'b'}, 32), VYN_STATUS_INVALID_PARAMETER);
  // A byte left over after the seventh text.
  EXPECT_EQ(parse({1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7}, 32), RX_WRONG_LENGTH);
  // Too small a text size; the fixed fields are delivered all the same.
  version = 0;
  EXPECT_EQ(parse({5, 0, 0, 0, 0, 0, 0, 0, 0, 0}, 1), VYN_STATUS_INVALID_PARAMETER);
  EXPECT_EQ(version, 5);

  // The production texts take any size; size 0 leaves no room at all.
  std::string date;
  std::string user;
  Record record = ToRecord(CcpuFrame(0x4054, Cat({Text("2024"), Text("ann")})));
  EXPECT_EQ(command_set.ProcessAckGetProductionInfo(record.data(), &date, &user, 0),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(date + user, "");
  EXPECT_EQ(command_set.ProcessAckGetProductionInfo(record.data(), &date, &user, 4),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(date, "202");
  EXPECT_EQ(user, "ann");
}

TEST(CommandParsersTest, PwmRepliesSetTheChannelFlagByLength) {
  ProbedCommandSet command_set;
  unsigned char status = 0xFF;
  float first = -1;
  float second = -1;
  auto parse = [&](const Bytes& payload) {
    Record record = ToRecord(CcpuFrame(0x4B21, payload));
    return command_set.ProcessAckSetECPUPWMZeroOffset(record.data(), &status, &first, &second, 32);
  };
  EXPECT_EQ(parse(Cat({{0}, F32(1.5F), F32(2.5F)})), 0);
  EXPECT_TRUE(command_set.HasTwoChannels());
  EXPECT_EQ(second, 2.5F);

  second = -1;
  EXPECT_EQ(parse(Cat({{3}, F32(4.5F)})), 0);
  EXPECT_FALSE(command_set.HasTwoChannels());
  EXPECT_EQ(status, 3);
  EXPECT_EQ(first, 4.5F);
  EXPECT_EQ(second, -1);

  // Seven bytes: the long form, but its second value is cut off and left alone.
  EXPECT_EQ(parse(Cat({{0}, F32(6.5F), {1, 2}})), RX_WRONG_LENGTH);
  EXPECT_TRUE(command_set.HasTwoChannels());
  EXPECT_EQ(first, 6.5F);
  EXPECT_EQ(second, -1);

  // A set acknowledgement of two bytes still delivers its status.
  Record ack = ToRecord(CcpuFrame(0x4051, {7, 0}));
  status = 0;
  EXPECT_EQ(command_set.ProcessAckSetHardwareInfo(ack.data(), &status), RX_WRONG_LENGTH);
  EXPECT_EQ(status, 7);
}

TEST(CommandParsersTest, NotificationsAndListsFollowTheirWidths) {
  CVYNCommandSet command_set;
  unsigned char count = 0;
  unsigned char ids[255] = {};
  unsigned char values[1020] = {};
  Record record = ToRecord(CcpuFrame(0x8002, {27, 0xE8, 0x03, 26, 1, 2, 3, 4, 7, 0x00, 0xF0}));
  EXPECT_EQ(command_set.ProcessNotStatus(record.data(), &count, ids, values), 0);
  ASSERT_EQ(count, 3);
  EXPECT_EQ(Bytes(ids, ids + 3), (Bytes{27, 26, 7}));
  EXPECT_EQ(Bytes(values, values + 8), (Bytes{0xE8, 0x03, 1, 2, 3, 4, 0x00, 0xF0}));

  record = ToRecord(CcpuFrame(0x8002, {}));
  EXPECT_EQ(command_set.ProcessNotStatus(record.data(), &count, ids, values), 0);
  EXPECT_EQ(count, 0);
  // An I2C count whose four bytes are not all there is not taken.
  record = ToRecord(CcpuFrame(0x8002, {128, 26, 1, 2}));
  EXPECT_EQ(command_set.ProcessNotStatus(record.data(), &count, ids, values), RX_WRONG_LENGTH);
  EXPECT_EQ(count, 1);
  EXPECT_EQ(ids[0], 128);

  uint16_t trace_count = 0;
  int16_t trace[3] = {};
  record = ToRecord(CcpuFrame(0xBFFE, {1, 0, 0xFF, 0xFF, 3, 0}));
  EXPECT_EQ(command_set.ProcessNotTrace(record.data(), &trace_count, trace, 2),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(trace_count, 3);
  EXPECT_EQ(trace[0], 0);
  EXPECT_EQ(command_set.ProcessNotTrace(record.data(), &trace_count, trace, 3), 0);
  EXPECT_EQ(trace[1], -1);
  EXPECT_EQ(trace[2], 3);
  record = ToRecord(CcpuFrame(0xBFFE, {1, 0, 0xFF, 0xFF, 3}));
  EXPECT_EQ(command_set.ProcessNotTrace(record.data(), &trace_count, trace, 3), RX_WRONG_LENGTH);

  uint16_t source = 0;
  unsigned char priority = 0;
  std::string text;
  record = ToRecord(CcpuFrame(0xBFFF, {2, 1, 3, 'o', 'k', 'a', 'y'}));
  EXPECT_EQ(command_set.ProcessNotDebug(record.data(), &source, &priority, &text, 3),
            VYN_STATUS_BUFFER_TOO_SMALL);
  EXPECT_EQ(source, 0x0102);
  EXPECT_EQ(priority, 3);
  EXPECT_EQ(text, "ok");

  // More codes than any request can ask for.
  unsigned char codes[255] = {};
  record = ToRecord(CcpuFrame(0x4002, Bytes(300, 4)));
  EXPECT_EQ(command_set.ProcessAckGetStatus(record.data(), &count, codes), RX_WRONG_LENGTH);
  EXPECT_EQ(count, 255);
  EXPECT_EQ(codes[254], 4);
}

TEST(CommandParsersTest, McpuRepliesReadTheirFieldsAtTheirPlaces) {
  CVYNCommandSet command_set;
  unsigned char state = 0;
  std::string version;
  Bytes board(18, 0);
  board[3] = 0x81;
  auto board_version = [&](uint32_t number, unsigned char size) {
    const Bytes bytes = Le32(number);
    std::copy(bytes.begin(), bytes.end(), board.begin() + 7);
    Record record = ToRecord(McpuFrame(0x56, board));
    EXPECT_EQ(command_set.ProcessAckBoardInfo(record.data(), &state, &version, size), 0);
    return version;
  };
  EXPECT_EQ(board_version(30205, 32), "V 02.01.04");
  EXPECT_EQ(state, 0x81);
  EXPECT_EQ(board_version(20101, 32), "V 01.00.00");
  EXPECT_EQ(board_version(30205, 6), "V 02.");

  Bytes realtime(63, 0);
  realtime[57] = 0xAA;
  realtime[52] = 0x34;
  realtime[53] = 0x12;
  realtime[14] = 0x78;
  realtime[15] = 0x56;
  realtime[16] = 0xBB;
  Record record = ToRecord(McpuFrame(0x17, realtime));
  unsigned char a = 0;
  unsigned char d = 0;
  uint16_t b = 0;
  uint16_t c = 0;
  EXPECT_EQ(command_set.ProcessRealtimeData3(record.data(), &a, &b, &c, &d), 0);
  EXPECT_EQ(a, 0xAA);
  EXPECT_EQ(b, 0x1234);
  EXPECT_EQ(c, 0x5678);
  EXPECT_EQ(d, 0xBB);
}

}  // namespace
