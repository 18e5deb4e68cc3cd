#include "sim/device_simulator.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cctype>
#include <cstring>
#include <string>
#include <thread>
#include <tuple>

#include "tests/sim/test_port.h"
#include "vyn/device/command_dump.h"

namespace {

using vyn::sim::ChecksumKind;
using vyn::sim::DeviceSimulator;
using vyn::test::Bytes;
using vyn::test::CcpuFrame;
using vyn::test::McpuFrame;
using vyn::test::TestPort;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

// What the library's traffic monitor shows for a frame: the reply's name,
// whether it has the layout of its kind, and its fields.
std::string Line(const Bytes& frame) {
  vyn::test::Record record = vyn::test::ToRecord(frame);
  CVYNCommandDump dump;
  dump.DumpAcknowledgeOrNotification(record.data());
  return dump.GetCommandDump();
}

class DeviceSimulatorTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(device_.Start());
    port_ = std::make_unique<TestPort>(device_.port_path());
    ASSERT_TRUE(port_->is_open()) << device_.port_path();
  }

  // A reply that is well-formed by both checksums.
  Bytes AskGood(const Bytes& request) {
    const Bytes reply = port_->Ask(request);
    EXPECT_TRUE(vyn::test::WellFormed(reply)) << reply.size() << " bytes";
    return reply;
  }

  DeviceSimulator device_;
  std::unique_ptr<TestPort> port_;
};

TEST_F(DeviceSimulatorTest, AnswersEveryRequestAndKeepsWhatIsSet) {
  // Each reply's line begins as given; the rest shows only defaults.
  const std::pair<Bytes, std::string> exchanges[] = {
      {CcpuFrame(0x0001, {}), "CCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; 0;"},
      // An unknown property, and an entry cut short.
      {CcpuFrame(0x0002, {5, 10, 27, 1, 99, 1, 6}),
       "CCPU_CMD_ID_ACK_GET_STATUS; internal status; 0; status count; 4; status 1; "
       "STATUS_SUCCESS; status 2; STATUS_SUCCESS; status 3; STATUS_INVALID_PARAMETER; status 4; "
       "STATUS_INVALID_LENGTH"},
      {CcpuFrame(0x0003, {}), "CCPU_CMD_ID_ACK_DUMP_SETTINGS; internal status; 0; status; 0"},
      // The counter cannot be set and the axis value is cut short; no axis moves.
      {CcpuFrame(0x0011, {0x80, 0x34, 0x12, 0, 26, 6, 0}),
       "CCPU_CMD_ID_ACK_CONTROL; internal status; 0; status count; 4; status 1; STATUS_SUCCESS; "
       "status 2; STATUS_SUCCESS; status 3; STATUS_INVALID_PARAMETER; status 4; "
       "STATUS_INVALID_LENGTH"},
      {CcpuFrame(0x0051, {0x02, 0x01, 'A', 0, '7', 0}),
       "CCPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; 0; status; 0"},
      {CcpuFrame(0x0051, {0x03, 0x01, 'B'}),  // no zero: refused, nothing changes
       "CCPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; 0; status; 1"},
      {CcpuFrame(0x0052, {}),
       "CCPU_CMD_ID_ACK_GET_HARDWARE_INFO; internal status; 0; hardware type; 0x0102; hardware "
       "version; A; serial number; 7"},
      {CcpuFrame(0x0053, {'1', '2', 0, 'u', 0}),
       "CCPU_CMD_ID_ACK_SET_PRODUCTION_INFO; internal status; 0; status; 0"},
      {CcpuFrame(0x0054, {}),
       "CCPU_CMD_ID_ACK_GET_PRODUCTION_INFO; internal status; 0; production date; 12; production "
       "user; u"},
      {CcpuFrame(0x0B21, {0x00, 0x40, 0x00, 0xC0}),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_ZERO_OFFSET; Joystick; internal status; 0; Zero Offset_1: "
       "25.0; Zero Offset_2: 75.0"},
      // All zero: the device keeps the range it measured itself.
      {CcpuFrame(0x0B22, Bytes(16, 0)),
       "ECPU_CMD_ID_ACK_SET_ECPU_PWM_MIN_MAX; Joystick; internal status; 0;"},
      {CcpuFrame(0x0B23, {}),
       "ECPU_CMD_ID_ACK_GET_ECPU_PWM_CALIBRATION; Joystick; internal status; 0; "
       "MinMaxCalibrated_1: 1; ZeroCalibrated_1: 1; DutyCycleMin_1: 10.0; DutyCycleMax_1: 90.0; "
       "DutyCycleOffset_1: 25.0; \r\n MinMaxCalibrated_2: 1; ZeroCalibrated_2: 1; "
       "DutyCycleMin_2: 12.5; DutyCycleMax_2: 87.5; DutyCycleOffset_2: 75.0"},
      {CcpuFrame(0x0B24, Bytes(8, 0)),
       "ECPU_CMD_ID_ACK_SET_ECPU_ENCODER_MIN_MAX; Wheel; internal status; 0;"},
      {CcpuFrame(0x0B25, {}),
       "ECPU_CMD_ID_ACK_GET_ECPU_ENCODER_CALIBRATION; Wheel; internal status; 0; "
       "Encoder1_Calibrated: 1;"},
      {CcpuFrame(0x0B51, {0x34, 0x12, 'E', 0, 0}),
       "ECPU_CMD_ID_ACK_SET_HARDWARE_INFO; internal status; 0; status; 0"},
      {CcpuFrame(0x0B52, {}),
       "ECPU_CMD_ID_ACK_GET_HARDWARE_INFO; internal status; 0; hardware type; 0x1234; hardware "
       "version; E; serial number; "},
      {CcpuFrame(0x0B53, {0, 'x', 'y', 0}),
       "ECPU_CMD_ID_ACK_SET_PRODUCTION_INFO; internal status; 0; status; 0"},
      {CcpuFrame(0x0B54, {}),
       "ECPU_CMD_ID_ACK_GET_PRODUCTION_INFO; internal status; 0; production date; ; production "
       "user; xy"},
      // The library's request: one zero byte of payload.
      {McpuFrame(0x21, {0}),
       "MCPU_CMD_ID_READ_ENCODER_CALIBRATION; internal status; 0; EFO; 0; 0; 0; zero; 0; 0; 0"},
      {McpuFrame(0x1A, {}), "MCPU_CMD_ID_CALIBRATE_ZERO"},
      {McpuFrame(0x1B, {}), "MCPU_CMD_ID_CALIBRATE_EFO"},
      // The other reading of six such bytes: an empty request and a stray zero.
      {{0x3E, 0x21, 0x00, 0x21, 0x00, 0x00},
       "MCPU_CMD_ID_READ_ENCODER_CALIBRATION; internal status; 0; EFO; 40; 80; 120; zero; 0; 0; "
       "0"},
      {McpuFrame(0x22, {}), "MCPU_CMD_ID_WRITE_ENCODER_CALIBRATION"},
      {McpuFrame(0x45, {0x0B}), "MCPU_CMD_ID_CHANGE_MOTORS; 1"},
      // Ready, with the motors on and a calibration stored.
      {McpuFrame(0x56, {}),
       "MCPU_CMD_ID_ACK_GET_DEVICE_INFO; internal status; 0; MCPU state; 0x13;"},
      {{0x3E, 0x45, 0x01, 0x46, 0x0C, 0x0C}, "MCPU_CMD_ID_CHANGE_MOTORS; 0"},
  };
  for (const auto& [request, start] : exchanges) {
    const std::string line = Line(AskGood(request));
    EXPECT_EQ(line.substr(0, start.size()), start) << line;
  }
  const Bytes realtime = AskGood(McpuFrame(0x17, {}));
  EXPECT_EQ(realtime.size(), 63u + 5);
  EXPECT_EQ(realtime.at(1), 0x17);
  // Finer than the line shows: a quarter of the raw range is 25 %.
  float offset = 0;
  std::memcpy(&offset, AskGood(CcpuFrame(0x0B21, {0x00, 0x40, 0x00, 0xC0})).data() + 8, 4);
  EXPECT_FLOAT_EQ(offset, 25.0F);
  const auto counters = device_.counters();
  EXPECT_EQ(counters.requests, std::size(exchanges) + 2);
  EXPECT_EQ(counters.replies, std::size(exchanges) + 2);
  EXPECT_EQ(counters.bad_requests, 0u);
}

TEST_F(DeviceSimulatorTest, StaysSilentOnBadAndUnknownFramesAndFindsTheNextGoodOne) {
  Bytes bad_header = CcpuFrame(0x0001, {});
  bad_header[6] ^= 0x01;
  Bytes bad_payload = CcpuFrame(0x0003, {1, 2});
  bad_payload.back() ^= 0x80;
  Bytes bad_mcpu = McpuFrame(0x56, {});
  bad_mcpu.back() = 1;
  for (const Bytes& bytes : {bad_header, bad_payload, bad_mcpu, Bytes{0x00, 0x17, 0xFF},
                             CcpuFrame(0x0777, {}), McpuFrame(0x7F, {})}) {
    ASSERT_TRUE(port_->Send(bytes));
  }
  // The start of a frame that never ends, with a good request right behind
  // it: the broken header is rejected and the request inside it found. Its
  // reply comes first: nothing answered the frames before.
  const Bytes reply = AskGood(vyn::test::Cat({{0x42, 0x01, 0x00}, CcpuFrame(0x0003, {})}));
  EXPECT_EQ(Line(reply), "CCPU_CMD_ID_ACK_DUMP_SETTINGS; internal status; 0; status; 0");
  const auto counters = device_.counters();
  EXPECT_EQ(counters.bad_requests, 4u);  // the broken header too
  EXPECT_EQ(counters.unknown_requests, 2u);
  EXPECT_EQ(counters.requests, 3u);
  EXPECT_GE(counters.stray_bytes, 3u);
}

TEST_F(DeviceSimulatorTest, NotificationsCarryTheAgreedValueWidths) {
  AskGood(CcpuFrame(0x0011, {5, 0x00, 0x04}));  // axis 1 towards 1024
  device_.SetNotificationPeriod(milliseconds(10));
  device_.SetNotifications(true);
  bool seen_trace = false;
  bool seen_debug = false;
  int16_t axis_1 = 0;
  const auto end = Clock::now() + milliseconds(5000);
  while (Clock::now() < end && !(seen_trace && seen_debug && axis_1 == 1024)) {
    const Bytes frame = port_->ReadFrame();
    ASSERT_TRUE(vyn::test::WellFormed(frame) && frame[0] == 0x42 && frame.size() > 8);
    const Bytes p(frame.begin() + 7, frame.end() - 1);
    const unsigned id = frame[1] | frame[2] << 8;
    if (id == 0x8002) {
      // Axes 5 to 7 and loops (27) two bytes, I2C errors (26) four.
      Bytes ids;
      size_t at = 0;
      while (at < p.size()) {
        ids.push_back(p[at++]);
        if (ids.back() == 5) axis_1 = static_cast<int16_t>(p.at(at) | p.at(at + 1) << 8);
        at += ids.back() == 26 ? 4 : 2;
      }
      EXPECT_EQ(at, p.size()) << "entries do not fill the payload";
      EXPECT_EQ(ids, (Bytes{5, 6, 7, 26, 27}));
    } else if (id == 0xBFFE) {
      seen_trace = true;
      EXPECT_TRUE(!p.empty() && p.size() % 2 == 0);
    } else {
      ASSERT_EQ(id, 0xBFFFu);
      seen_debug = true;
      ASSERT_GE(p.size(), 4u);
      for (size_t i = 3; i < p.size(); ++i) EXPECT_TRUE(std::isprint(p[i])) << i;
    }
  }
  EXPECT_TRUE(seen_trace && seen_debug);
  EXPECT_EQ(axis_1, 1024) << "the axis never reached its set-point";

  // Switched off, they end before the reply to the next request.
  device_.SetNotifications(false);
  ASSERT_TRUE(port_->Send(CcpuFrame(0x0003, {})));
  while (port_->ReadFrame().at(1) != 0x03) {
  }
  EXPECT_TRUE(port_->Read(4096, 60).empty());
  EXPECT_GE(device_.counters().notifications, 3u);
}

TEST_F(DeviceSimulatorTest, DamagesTheNextFrameOnDemand) {
  const Bytes request = CcpuFrame(0x0003, {});
  const Bytes good = AskGood(request);
  ASSERT_EQ(good, CcpuFrame(0x4003, {0}));
  // One byte short: the next reply follows right behind it.
  device_.DropByte();
  ASSERT_TRUE(port_->Send(request) && port_->Send(request));
  const Bytes both = port_->Read(17);
  ASSERT_EQ(both.size(), 17u);
  EXPECT_EQ(Bytes(both.begin() + 8, both.end()), good);

  // Only the checksum asked for is wrong.
  for (const auto& [kind, at] :
       {std::pair{ChecksumKind::kHeader, 6}, {ChecksumKind::kPayload, 8}}) {
    device_.CorruptChecksum(kind);
    const Bytes reply = port_->Ask(request);
    ASSERT_EQ(reply.size(), 9u);
    for (int i = 0; i < 9; ++i) EXPECT_EQ(reply[i] != good[i], i == at) << i;
  }

  // Enough garbage that random bytes would hold a start byte.
  device_.SendGarbage(1000);
  ASSERT_TRUE(port_->Send(request));
  const Bytes reply = port_->Read(1009);
  ASSERT_EQ(reply.size(), 1009u);
  EXPECT_EQ(std::count(reply.begin(), reply.end() - 9, 0x42) +
                std::count(reply.begin(), reply.end() - 9, 0x3E),
            0);
  EXPECT_EQ(Bytes(reply.end() - 9, reply.end()), good);

  EXPECT_EQ(AskGood(request), good);  // the faults are spent
  const auto counters = device_.counters();
  EXPECT_EQ(counters.replies, 7u);
  EXPECT_EQ(counters.garbage_bytes, 1000u);
  EXPECT_EQ(counters.faults_applied, 3u);
  EXPECT_EQ(counters.bytes_sent, 9u + 8 + 9 + 9 + 9 + 1009 + 9);
}

TEST_F(DeviceSimulatorTest, StallAndSplitDelayWhatIsSent) {
  const Bytes request = CcpuFrame(0x0001, {});
  Clock::time_point start = Clock::now();
  device_.Stall(milliseconds(200));
  const Bytes reply = AskGood(request);
  EXPECT_GE(Clock::now() - start, milliseconds(190));

  // The halves come apart by the pause, wherever the reader's time goes.
  device_.SplitNextFrame(milliseconds(250));
  ASSERT_TRUE(port_->Send(request));
  const Bytes first = port_->Read(reply.size() / 2);
  start = Clock::now();
  const Bytes second = port_->Read(reply.size() - first.size());
  EXPECT_GE(Clock::now() - start, milliseconds(200));
  EXPECT_EQ(vyn::test::Cat({first, second}), reply);
}

TEST_F(DeviceSimulatorTest, ShortNotificationPeriodsAreWaitedForNotPolled) {
  // A notification due within a millisecond is waited for; a thread that
  // polled until then would use about all of the time below, or, on a busy
  // machine, never give up the CPU itself. The reader stays away, so the
  // simulator's own work is the only cost.
  device_.SetNotificationPeriod(milliseconds(1));
  device_.SetNotifications(true);
  const vyn::test::ProcessUsage before;
  std::this_thread::sleep_for(milliseconds(300));
  const vyn::test::ProcessUsage after;
  EXPECT_LT(after.cpu_seconds - before.cpu_seconds, 0.05);
  // Even when load delays its wake-ups, the thread sleeps again and again.
  EXPECT_GE(after.waits - before.waits, 10);
  EXPECT_FALSE(port_->ReadFrame().empty());
}

TEST(DeviceSimulatorLifecycleTest, ARockerAnswersShortFormsAndAReplugServesAgain) {
  vyn::sim::DeviceSimulatorOptions options;
  options.two_channel_input = false;
  DeviceSimulator device(options);
  ASSERT_TRUE(device.Start());
  auto port = std::make_unique<TestPort>(device.port_path());
  // One channel: the short forms of the three PWM replies, also after a switch.
  for (const bool two : {false, true}) {
    device.SetTwoChannelInput(two);
    for (const auto& [id, one, both] :
         {std::tuple{0x0B21, 5u, 9u}, {0x0B22, 9u, 17u}, {0x0B23, 15u, 29u}}) {
      EXPECT_EQ(port->Ask(CcpuFrame(id, {})).size(), (two ? both : one) + 8u) << id;
    }
  }
  ASSERT_TRUE(device.Replug());
  port = std::make_unique<TestPort>(device.port_path());
  EXPECT_EQ(port->Ask(CcpuFrame(0x0003, {})), CcpuFrame(0x4003, {0}));
}

}  // namespace
