#include "sim/device_simulator.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cctype>
#include <cstring>
#include <functional>
#include <string>

#include "tests/sim/test_port.h"

namespace {

using vyn::sim::ChecksumKind;
using vyn::sim::DeviceSimulator;
using vyn::sim::DeviceSimulatorOptions;
using vyn::test::Bytes;
using vyn::test::Ccpu;
using vyn::test::FrameView;
using vyn::test::Mcpu;
using vyn::test::TestPort;
using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

float FloatAt(const Bytes& payload, size_t offset) {
  float value = 0.0f;
  if (payload.size() >= offset + sizeof value) {
    std::memcpy(&value, payload.data() + offset, sizeof value);
  }
  return value;
}

uint32_t U32At(const Bytes& payload, size_t offset) {
  return payload.at(offset) | payload.at(offset + 1) << 8 | payload.at(offset + 2) << 16 |
         static_cast<uint32_t>(payload.at(offset + 3)) << 24;
}

// The texts of a payload from `offset` on; each must end with a zero byte.
std::vector<std::string> TextsFrom(const Bytes& payload, size_t offset) {
  std::vector<std::string> texts;
  std::string text;
  for (size_t i = offset; i < payload.size(); ++i) {
    if (payload[i] == 0) {
      texts.push_back(text);
      text.clear();
    } else {
      text.push_back(static_cast<char>(payload[i]));
    }
  }
  EXPECT_TRUE(text.empty()) << "text without terminating zero at the end of the payload";
  return texts;
}

bool IsLink(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0 && S_ISLNK(info.st_mode);
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
    Bytes reply = port_->Ask(request);
    if (reply.empty()) {
      ADD_FAILURE() << "no reply";
      return reply;
    }
    EXPECT_TRUE(FrameView(reply).header_ok());
    EXPECT_TRUE(FrameView(reply).payload_ok());
    return reply;
  }

  DeviceSimulator device_;
  std::unique_ptr<TestPort> port_;
};

struct Exchange {
  const char* name;
  Bytes request;
  unsigned reply_id;
  size_t reply_n;
  Bytes reply_payload;  // compared when not empty
  std::function<void(const Bytes& payload)> check = nullptr;
};

TEST_F(DeviceSimulatorTest, AnswersEveryRequestWithItsReplyLayout) {
  const Bytes zeros16(16, 0);
  const Bytes zeros8(8, 0);
  const std::vector<Exchange> exchanges = {
      {"device info",
       {0x42, 0x01, 0x00, 0x00, 0x00, 0x01, 0x02},
       0x4001,
       0,
       {},
       [](const Bytes& p) {
         const auto texts = TextsFrom(p, 3);
         ASSERT_EQ(texts.size(), 7u);
         EXPECT_EQ(texts[2].rfind("V ", 0), 0u) << texts[2];
       }},
      {"status, one unknown id and a cut entry",
       Ccpu(0x0002, {5, 10, 27, 1, 99, 1, 6}),
       0x4002,
       4,
       {0, 0, 3, 1}},
      {"dump settings", Ccpu(0x0003), 0x4003, 1, {0}},
      {"control", Ccpu(0x0011, {0x80, 0x34, 0x12, 0, 26, 5, 0x00, 0x10}), 0x4011, 4, {0, 0, 3, 0}},
      {"set hardware info", Ccpu(0x0051, {0x02, 0x01, 'A', 0, '7', 0}), 0x4051, 1, {0}},
      {"get hardware info", Ccpu(0x0052), 0x4052, 6, {0x02, 0x01, 'A', 0, '7', 0}},
      {"set hardware info without zero", Ccpu(0x0051, {0x02, 0x01, 'A'}), 0x4051, 1, {1}},
      {"set production info", Ccpu(0x0053, {'1', '2', 0, 'u', 0}), 0x4053, 1, {0}},
      {"get production info", Ccpu(0x0054), 0x4054, 5, {'1', '2', 0, 'u', 0}},
      {"KCPU info",
       Ccpu(0x0A01),
       0x4A01,
       0,
       {},
       [](const Bytes& p) { EXPECT_EQ(TextsFrom(p, 3).size(), 1u); }},
      {"ECPU info",
       Ccpu(0x0B01),
       0x4B01,
       0,
       {},
       [](const Bytes& p) { EXPECT_EQ(TextsFrom(p, 3).size(), 1u); }},
      {"PWM zero offset",
       Ccpu(0x0B21, {0x00, 0x80, 0x00, 0x80}),
       0x4B21,
       9,
       {},
       [](const Bytes& p) {
         EXPECT_EQ(p[0], 0);
         EXPECT_FLOAT_EQ(FloatAt(p, 1), 50.0f);
         EXPECT_FLOAT_EQ(FloatAt(p, 5), 50.0f);
       }},
      {"PWM min/max",
       Ccpu(0x0B22, zeros16),
       0x4B22,
       17,
       {},
       [](const Bytes& p) { EXPECT_LT(FloatAt(p, 1), FloatAt(p, 5)); }},
      {"PWM calibration",
       Ccpu(0x0B23),
       0x4B23,
       29,
       {},
       [](const Bytes& p) {
         EXPECT_EQ(p[1], 1);  // min/max calibrated by the request before
         EXPECT_EQ(p[2], 1);  // zero calibrated
         EXPECT_FLOAT_EQ(FloatAt(p, 11), 50.0f);
       }},
      {"encoder min/max",
       Ccpu(0x0B24, zeros8),
       0x4B24,
       9,
       {},
       [](const Bytes& p) { EXPECT_LT(U32At(p, 1), U32At(p, 5)); }},
      {"encoder calibration",
       Ccpu(0x0B25),
       0x4B25,
       10,
       {},
       [](const Bytes& p) { EXPECT_EQ(p[1], 1); }},
      {"set ECPU hardware info", Ccpu(0x0B51, {0x34, 0x12, 'E', 0, 0}), 0x4B51, 1, {0}},
      {"get ECPU hardware info", Ccpu(0x0B52), 0x4B52, 5, {0x34, 0x12, 'E', 0, 0}},
      {"set ECPU production info", Ccpu(0x0B53, {0, 'x', 'y', 0}), 0x4B53, 1, {0}},
      {"get ECPU production info", Ccpu(0x0B54), 0x4B54, 4, {0, 'x', 'y', 0}},
      {"board info",
       Mcpu(0x56),
       0x56,
       18,
       {},
       [](const Bytes& p) { EXPECT_EQ(U32At(p, 7), 30205u); }},
      {"read params, empty", Mcpu(0x21), 0x21, 40, {}, nullptr},
      {"calibrate zero", Mcpu(0x1A), 0x43, 1, {0x1A}},
      {"calibrate EFO", Mcpu(0x1B), 0x43, 1, {0x1B}},
      {"write encoder calibration", Mcpu(0x22), 0x43, 1, {0x22}},
      {"motors on", Mcpu(0x45, {0x0B}), 0x43, 2, {0x45, 1}},
      {"motors off", {0x3E, 0x45, 0x01, 0x46, 0x0C, 0x0C}, 0x43, 2, {0x45, 0}},
      {"real-time data 3", Mcpu(0x17), 0x17, 63, {}, nullptr},
      // The library's own form: an empty frame followed by one stray zero byte.
      {"read params, with trailing byte",
       {0x3E, 0x21, 0x00, 0x21, 0x00, 0x00},
       0x21,
       40,
       {},
       nullptr},
  };
  for (const Exchange& exchange : exchanges) {
    SCOPED_TRACE(exchange.name);
    const Bytes reply = AskGood(exchange.request);
    if (reply.empty()) continue;
    const FrameView view(reply);
    EXPECT_EQ(view.ccpu(), exchange.request[0] == 0x42);
    EXPECT_EQ(view.id(), exchange.reply_id);
    EXPECT_EQ(reply.size(), view.length());
    if (exchange.reply_n != 0) {
      EXPECT_EQ(view.n(), exchange.reply_n);
    }
    if (!exchange.reply_payload.empty()) {
      EXPECT_EQ(view.payload(), exchange.reply_payload);
    }
    if (exchange.check) exchange.check(view.payload());
  }
  EXPECT_TRUE(port_->ReadUntilQuiet(100).empty()) << "more than one reply to a request";
  const auto counters = device_.counters();
  EXPECT_EQ(counters.requests, exchanges.size());
  EXPECT_EQ(counters.replies, exchanges.size());
  EXPECT_EQ(counters.bad_requests, 0u);
}

TEST_F(DeviceSimulatorTest, OneChannelInputAnswersInTheShortForm) {
  device_.SetTwoChannelInput(false);
  EXPECT_EQ(FrameView(AskGood(Ccpu(0x0B21, {0, 0x80, 0, 0x80}))).n(), 5u);
  EXPECT_EQ(FrameView(AskGood(Ccpu(0x0B22, Bytes(16, 0)))).n(), 9u);
  EXPECT_EQ(FrameView(AskGood(Ccpu(0x0B23))).n(), 15u);
}

TEST_F(DeviceSimulatorTest, StaysSilentOnBadFramesAndFindsTheNextGoodOne) {
  Bytes bad_header = Ccpu(0x0001);
  bad_header[6] ^= 0x01;
  Bytes bad_payload = Ccpu(0x0003, {1, 2});
  bad_payload.back() ^= 0x80;
  Bytes bad_mcpu = Mcpu(0x56);
  bad_mcpu.back() = 1;
  ASSERT_TRUE(port_->Send(bad_header));
  ASSERT_TRUE(port_->Send(bad_payload));
  ASSERT_TRUE(port_->Send(bad_mcpu));
  ASSERT_TRUE(port_->Send({0x00, 0x17, 0xFF}));  // stray bytes
  EXPECT_TRUE(port_->ReadUntilQuiet(300).empty());
  EXPECT_EQ(device_.counters().bad_requests, 3u);
  EXPECT_EQ(device_.counters().requests, 0u);

  // The start of a frame that never ends, with a good request right behind
  // it: the broken header is rejected and the request inside it found.
  Bytes cut_short = {0x42, 0x01, 0x00};
  const Bytes good = Ccpu(0x0003);
  cut_short.insert(cut_short.end(), good.begin(), good.end());
  const Bytes reply = AskGood(cut_short);
  EXPECT_EQ(FrameView(reply).id(), 0x4003u);
  EXPECT_EQ(device_.counters().requests, 1u);
  EXPECT_GE(device_.counters().stray_bytes, 3u);
}

TEST_F(DeviceSimulatorTest, UnknownRequestsStayUnanswered) {
  ASSERT_TRUE(port_->Send(Ccpu(0x0777)));
  ASSERT_TRUE(port_->Send(Mcpu(0x7F)));
  EXPECT_TRUE(port_->ReadUntilQuiet(300).empty());
  EXPECT_EQ(device_.counters().unknown_requests, 2u);
}

TEST_F(DeviceSimulatorTest, NotificationsCarryTheAgreedValueWidths) {
  ASSERT_TRUE(AskGood(Ccpu(0x0011, {5, 0x00, 0x04})).size() > 0);  // axis 1 towards 1024
  device_.SetNotificationPeriod(milliseconds(20));
  device_.SetNotifications(true);
  bool seen_status = false, seen_trace = false, seen_debug = false;
  int16_t last_axis_1 = 0;
  const auto end = Clock::now() + milliseconds(5000);
  while (Clock::now() < end && !(seen_status && seen_trace && seen_debug && last_axis_1 == 1024)) {
    const Bytes frame = port_->ReadFrame();
    ASSERT_FALSE(frame.empty());
    const FrameView view(frame);
    ASSERT_TRUE(view.header_ok() && view.payload_ok());
    const Bytes p = view.payload();
    if (view.id() == 0x8002) {
      seen_status = true;
      size_t at = 0;
      std::vector<uint8_t> ids;
      while (at < p.size()) {
        const uint8_t id = p[at++];
        ids.push_back(id);
        if (id == 5) last_axis_1 = static_cast<int16_t>(p.at(at) | p.at(at + 1) << 8);
        at += (id == 26) ? 4 : (id >= 5 && id <= 7) || id == 27 ? 2 : 0;
      }
      EXPECT_EQ(at, p.size()) << "entries do not fill the payload";
      EXPECT_EQ(ids, (std::vector<uint8_t>{5, 6, 7, 26, 27}));
    } else if (view.id() == 0xBFFE) {
      seen_trace = true;
      EXPECT_TRUE(!p.empty() && p.size() % 2 == 0);
    } else if (view.id() == 0xBFFF) {
      seen_debug = true;
      ASSERT_GE(p.size(), 4u);
      for (size_t i = 3; i < p.size(); ++i) EXPECT_TRUE(std::isprint(p[i])) << i;
    } else {
      ADD_FAILURE() << "unexpected frame id " << view.id();
    }
  }
  EXPECT_TRUE(seen_status && seen_trace && seen_debug);
  EXPECT_EQ(last_axis_1, 1024) << "the axis never reached its set-point";

  device_.SetNotifications(false);
  port_->ReadUntilQuiet(200);
  EXPECT_TRUE(port_->ReadUntilQuiet(300).empty());
  EXPECT_GE(device_.counters().notifications, 3u);
}

TEST_F(DeviceSimulatorTest, DamagesTheNextFrameOnDemand) {
  const Bytes request = Ccpu(0x0003);  // answered with 7 + 1 + 1 bytes
  device_.DropByte();
  ASSERT_TRUE(port_->Send(request));
  EXPECT_EQ(port_->ReadBurst(200).size(), 8u);

  device_.CorruptChecksum(ChecksumKind::kHeader);
  ASSERT_TRUE(port_->Send(request));
  Bytes reply = port_->ReadCount(9);
  ASSERT_EQ(reply.size(), 9u);
  EXPECT_FALSE(FrameView(reply).header_ok());
  EXPECT_TRUE(FrameView(reply).payload_ok());

  device_.CorruptChecksum(ChecksumKind::kPayload);
  ASSERT_TRUE(port_->Send(request));
  reply = port_->ReadCount(9);
  ASSERT_EQ(reply.size(), 9u);
  EXPECT_TRUE(FrameView(reply).header_ok());
  EXPECT_FALSE(FrameView(reply).payload_ok());

  device_.SendGarbage(20);
  ASSERT_TRUE(port_->Send(request));
  reply = port_->ReadCount(29);
  ASSERT_EQ(reply.size(), 29u);
  for (size_t i = 0; i < 20; ++i) EXPECT_TRUE(reply[i] != 0x42 && reply[i] != 0x3E) << i;
  const Bytes frame(reply.begin() + 20, reply.end());
  EXPECT_TRUE(FrameView(frame).header_ok() && FrameView(frame).payload_ok());

  AskGood(request);  // the faults are spent
  const auto counters = device_.counters();
  EXPECT_EQ(counters.replies, 5u);
  EXPECT_EQ(counters.garbage_bytes, 20u);
  EXPECT_EQ(counters.faults_applied, 3u);
  EXPECT_EQ(counters.bytes_sent, 8u + 9 + 9 + 29 + 9);
}

TEST_F(DeviceSimulatorTest, StallAndSplitDelayWhatIsSent) {
  const Bytes request = Ccpu(0x0001);
  auto start = Clock::now();
  device_.Stall(milliseconds(400));
  const Bytes reply = AskGood(request);
  EXPECT_FALSE(reply.empty());
  EXPECT_GE(Clock::now() - start, milliseconds(390));

  device_.SplitNextFrame(milliseconds(400));
  ASSERT_TRUE(port_->Send(request));
  const Bytes first = port_->ReadBurst(150);
  start = Clock::now();
  const Bytes second = port_->ReadBurst(150);
  // The pause began when the first half had been written, before the quiet
  // time above had passed.
  EXPECT_GE(Clock::now() - start, milliseconds(390 - 150));
  EXPECT_EQ(first.size(), reply.size() / 2);
  Bytes joined = first;
  joined.insert(joined.end(), second.begin(), second.end());
  EXPECT_EQ(joined, reply);
}

TEST_F(DeviceSimulatorTest, UnplugHangsUpAndReplugServesTheSamePath) {
  const std::string path = device_.port_path();
  EXPECT_TRUE(IsLink(path));
  ASSERT_TRUE(device_.Unplug());
  EXPECT_TRUE(port_->WaitForHangUp(2000));
  EXPECT_FALSE(device_.IsPlugged());
  EXPECT_FALSE(IsLink(path));
  EXPECT_FALSE(TestPort(path).is_open());

  ASSERT_TRUE(device_.Replug());
  port_ = std::make_unique<TestPort>(path);
  ASSERT_TRUE(port_->is_open());
  EXPECT_EQ(FrameView(AskGood(Ccpu(0x0003))).id(), 0x4003u);

  // Replugging while plugged in swaps the terminal under a path that never
  // disappears.
  const std::string old_terminal = device_.terminal_path();
  ASSERT_TRUE(device_.Replug());
  EXPECT_TRUE(port_->WaitForHangUp(2000));
  EXPECT_NE(device_.terminal_path(), old_terminal);
  port_ = std::make_unique<TestPort>(path);
  EXPECT_EQ(FrameView(AskGood(Mcpu(0x56))).id(), 0x56u);
}

TEST(DeviceSimulatorLifecycleTest, StopRemovesLinkAndOwnDirectoryAndRestarts) {
  DeviceSimulatorOptions options;
  options.two_channel_input = false;
  DeviceSimulator device(options);
  ASSERT_TRUE(device.Start());
  EXPECT_FALSE(device.Start());
  const std::string path = device.port_path();
  const std::string directory = path.substr(0, path.rfind('/'));
  device.Stop();
  struct stat info {};
  EXPECT_NE(lstat(path.c_str(), &info), 0);
  EXPECT_NE(stat(directory.c_str(), &info), 0);
  EXPECT_FALSE(device.Unplug());
  ASSERT_TRUE(device.Start());
  TestPort port(device.port_path());
  EXPECT_EQ(FrameView(port.Ask(Ccpu(0x0B21, {0, 0x80, 0, 0x80}))).n(), 5u);
}

}  // namespace
