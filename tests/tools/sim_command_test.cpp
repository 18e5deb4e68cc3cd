// `vyn sim device` and `vyn sim bootloader` driven the way a script drives
// them: commands through a pipe on standard input, answers read back; and
// the path of their port link, made only where nothing is and removed on
// exit only while it is still their own.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/sim/test_port.h"
#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

namespace vyn::test {
namespace {

constexpr int kLimitMs = 10000;
namespace fs = std::filesystem;

std::string Say(ChildProcess& sim, const std::string& command) {
  sim.Write(command + "\n");
  return sim.NextLine();
}

bool Exists(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

TEST(SimCommand, TheDeviceTakesFaultCommandsAndLargeOnesRunInTheBackground) {
  ChildProcess sim(Vyn({"sim", "device"}));
  const std::string path = sim.NextLine(kLimitMs);
  TestPort port(path);
  ASSERT_TRUE(port.is_open()) << path;
  EXPECT_EQ(Say(sim, "garbage 3"), "ok: garbage queued");
  EXPECT_EQ(Say(sim, "badsum header"), "ok: the next frame has a wrong header checksum");
  ASSERT_TRUE(port.Send({0x3E, 0x56, 0x00, 0x56, 0x00}));
  const Bytes got = port.Read(3 + 23);
  ASSERT_EQ(got.size(), 26u);
  EXPECT_EQ(got[4], 0x56);
  EXPECT_NE(got[3 + 3], (got[4] + got[5]) & 0xFF) << "the header checksum is right";
  // Hundreds of megabytes and ten minutes of silence: each answered at once,
  // and the commands after them too; clear undoes them.
  EXPECT_EQ(Say(sim, "garbage 200000000"), "ok: garbage queued");
  EXPECT_EQ(Say(sim, "stall 600000"), "ok: stalled");
  EXPECT_EQ(Say(sim, "split 600000"), "ok: the next frame is split");
  EXPECT_EQ(Say(sim, "clear"), "ok: faults cleared");
  ASSERT_TRUE(port.Send({0x3E, 0x56, 0x00, 0x56, 0x00}));
  // What garbage went out before the clear, then the whole reply (the
  // garbage never holds a start byte).
  Bytes stream;
  for (int quiet_spells = 0; quiet_spells < 30; ++quiet_spells) {
    const Bytes more = port.Read(1 << 16, 300);
    stream.insert(stream.end(), more.begin(), more.end());
    const auto start = std::find(stream.begin(), stream.end(), 0x3E);
    if (start != stream.end() && stream.end() - start >= 23) break;
  }
  const auto start = std::find(stream.begin(), stream.end(), 0x3E);
  ASSERT_NE(start, stream.end()) << stream.size() << " bytes, no reply among them";
  EXPECT_EQ(stream.end() - start, 23);  // the board information reply, nothing after it
  EXPECT_EQ(start[1], 0x56);
  const std::string stats = Say(sim, "stats");
  EXPECT_NE(stats.find("requests 2;"), std::string::npos) << stats;
  const size_t at = stats.find("garbage ");
  ASSERT_NE(at, std::string::npos) << stats;
  EXPECT_LT(std::stoull(stats.substr(at + 8)), 200000000ull) << stats;
  EXPECT_EQ(Say(sim, "unplug"), "ok: unplugged");
  EXPECT_TRUE(port.WaitForHangUp(2000));
  EXPECT_EQ(Say(sim, "replug"), "ok: plugged in");
  EXPECT_TRUE(TestPort(path).is_open());
}

TEST(SimCommand, TheBootloaderTakesFaultCommandsToo) {
  ChildProcess sim(Vyn({"sim", "bootloader"}));
  TestPort port(sim.NextLine(kLimitMs));
  ASSERT_TRUE(port.is_open()) << sim.output();
  ASSERT_TRUE(port.Send({0x7F}));
  EXPECT_EQ(port.Read(1), Bytes{0x79});
  EXPECT_EQ(Say(sim, "nack id always"), "ok: NACK for command 0x02 always");
  ASSERT_TRUE(port.Send({0x02, 0xFD}));
  EXPECT_EQ(port.Read(1), Bytes{0x1F});
  EXPECT_EQ(Say(sim, "nack off"), "ok: no NACK injected");
  EXPECT_EQ(Say(sim, "chipid 0410"), "ok: chip id set");  // decimal: 0x019A
  ASSERT_TRUE(port.Send({0x02, 0xFD}));
  EXPECT_EQ(port.Read(5), (Bytes{0x79, 0x01, 0x01, 0x9A, 0x79}));
  EXPECT_EQ(Say(sim, "flash 0x08000000 2"), "flash 0x08000000: FF FF");
  EXPECT_EQ(Say(sim, "flash 0x08000000 0"),
            "error: '0' is not a number from 1 to 256 (decimal, or hex with 0x)");
  const std::string stats = Say(sim, "stats");
  EXPECT_NE(stats.find("nacks 1 (injected 1);"), std::string::npos) << stats;
}

TEST(SimCommand, EachStopEndsTheSimulatorCleanlyAndRemovesItsLink) {
  // 0: the end of input; -1: the reader of its output goes away.
  for (const int how : {0, -1, SIGINT, SIGHUP, SIGTERM}) {
    SCOPED_TRACE(how);
    ChildProcess sim(Vyn({"sim", how == SIGHUP ? "bootloader" : "device"}));
    const std::string path = sim.NextLine(kLimitMs);
    ASSERT_TRUE(Exists(path)) << sim.output();
    if (how == 0) sim.CloseInput();
    if (how == -1) sim.CloseOutput();
    if (how > 0) sim.Signal(how);
    ASSERT_TRUE(sim.WaitForExit(kLimitMs));
    EXPECT_EQ(sim.end_signal(), 0);
    if (how != -1) {
      EXPECT_EQ(sim.exit_code(), 0) << sim.output();
    }
    EXPECT_FALSE(Exists(path)) << "the port link outlived the program";
  }
}

TEST(SimCommand, ALinkPathTakenIsNeverReplacedNorRemoved) {
  TempDir dir;
  const std::string precious = dir.File("precious");
  WriteFile(precious, "keep me");
  for (const char* kind : {"device", "bootloader"}) {
    const ChildResult sim = RunVyn({"sim", kind, "--dir", dir.path(), "--name", "precious"});
    EXPECT_EQ(sim.exit_code, 1);
    EXPECT_NE(sim.output.find("exists already"), std::string::npos) << sim.output;
    EXPECT_EQ(ReadFile(precious), "keep me") << kind;
  }
  const std::string path = dir.File("port");
  ChildProcess first(Vyn({"sim", "device", "--dir", dir.path(), "--name", "port"}));
  ASSERT_EQ(first.NextLine(kLimitMs), path) << first.output();
  const fs::path target = fs::read_symlink(path);
  const ChildResult second = RunVyn({"sim", "device", "--dir", dir.path(), "--name", "port"});
  EXPECT_EQ(second.exit_code, 1);
  EXPECT_NE(second.output.find("another simulator"), std::string::npos) << second.output;
  EXPECT_EQ(fs::read_symlink(path), target);
  // A replug keeps using its own link, but never takes one somebody replaced.
  EXPECT_EQ(Say(first, "replug"), "ok: plugged in");
  ASSERT_TRUE(fs::remove(path));
  WriteFile(path, "someone else's");
  EXPECT_EQ(Say(first, "replug"), "error: replug failed");
  EXPECT_EQ(Say(first, "unplug"), "ok: unplugged");
  first.CloseInput();
  ASSERT_TRUE(first.WaitForExit(kLimitMs));
  EXPECT_EQ(ReadFile(path), "someone else's");
}

}  // namespace
}  // namespace vyn::test
