// vyn sim device, driven the way a script drives it: commands through a
// pipe on its standard input, answers read from its standard output.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <string>

#include "tests/sim/test_port.h"

extern char** environ;

namespace {

using vyn::test::Bytes;
using vyn::test::TestPort;

class SimDeviceProcess {
 public:
  explicit SimDeviceProcess(const char* kind = "device") {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], 0);
    posix_spawn_file_actions_adddup2(&actions, output[1], 1);
    char* argv[] = {const_cast<char*>(VYN_TOOL), const_cast<char*>("sim"), const_cast<char*>(kind),
                    nullptr};
    if (posix_spawn(&pid_, VYN_TOOL, &actions, nullptr, argv, environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    to_child_ = input[1];
    from_child_ = output[0];
  }
  ~SimDeviceProcess() {
    Wait(SIGKILL);
    close(to_child_);
    close(from_child_);
  }

  // Sends `command` (nothing when empty) and returns the next line of
  // output, or empty after a few seconds.
  std::string Say(const std::string& command) {
    const std::string text = command + "\n";
    if (!command.empty() && write(to_child_, text.data(), text.size()) < 0) return "";
    std::string line;
    char c;
    pollfd watched{from_child_, POLLIN, 0};
    while (poll(&watched, 1, 5000) > 0 && read(from_child_, &c, 1) == 1 && c != '\n') {
      line.push_back(c);
    }
    return line;
  }

  // Sends `signal`, or ends the input, and returns the exit status.
  int Wait(int signal = 0) {
    if (pid_ <= 0) return -1;
    if (signal != 0) kill(pid_, signal);
    if (signal == 0 && to_child_ >= 0) close(to_child_);
    to_child_ = signal == 0 ? -1 : to_child_;
    int status = 0;
    while (waitpid(pid_, &status, 0) < 0 && errno == EINTR) {
    }
    pid_ = -1;
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }

 private:
  pid_t pid_ = -1;
  int to_child_ = -1;
  int from_child_ = -1;
};

bool Exists(const std::string& path) {
  struct stat info {};
  return lstat(path.c_str(), &info) == 0;
}

TEST(SimCommandTest, PrintsThePortFirstAndTakesFaultCommands) {
  SimDeviceProcess child;
  const std::string path = child.Say("");
  ASSERT_EQ(path.rfind("/tmp/", 0), 0u) << path;
  TestPort port(path);
  ASSERT_TRUE(port.is_open());

  EXPECT_EQ(child.Say("garbage 3"), "ok: garbage queued");
  EXPECT_EQ(child.Say("badsum header"), "ok: the next frame has a wrong header checksum");
  ASSERT_TRUE(port.Send({0x3E, 0x56, 0x00, 0x56, 0x00}));
  const Bytes got = port.Read(3 + 23);
  ASSERT_EQ(got.size(), 26u);
  EXPECT_EQ(got[4], 0x56);
  EXPECT_NE(got[3 + 3], (got[4] + got[5]) & 0xFF) << "the header checksum is right";

  EXPECT_EQ(child.Say("stall x").rfind("error:", 0), 0u);
  const std::string stats = child.Say("stats");
  EXPECT_NE(stats.find("requests 1;"), std::string::npos) << stats;
  EXPECT_NE(stats.find("garbage 3;"), std::string::npos) << stats;

  EXPECT_EQ(child.Say("unplug"), "ok: unplugged");
  EXPECT_TRUE(port.WaitForHangUp(2000));
  EXPECT_EQ(child.Say("replug"), "ok: plugged in");
  EXPECT_TRUE(TestPort(path).is_open());

  EXPECT_EQ(child.Wait(), 0);
  EXPECT_FALSE(Exists(path)) << "the port link outlived the program";
}

TEST(SimCommandTest, LargeFaultsRunInTheBackgroundAndClearUndoesThem) {
  SimDeviceProcess child;
  const std::string path = child.Say("");
  TestPort port(path);
  ASSERT_TRUE(port.is_open());
  // Hundreds of megabytes and ten minutes of silence: each answered at once
  // (Say gives up after 5 s), and the commands after them too.
  EXPECT_EQ(child.Say("garbage 200000000"), "ok: garbage queued");
  EXPECT_EQ(child.Say("stall 600000"), "ok: stalled");
  EXPECT_EQ(child.Say("split 600000"), "ok: the next frame is split");
  EXPECT_EQ(child.Say("clear"), "ok: faults cleared");
  ASSERT_TRUE(port.Send({0x3E, 0x56, 0x00, 0x56, 0x00}));
  // What garbage went out before the clear, then the whole reply.
  Bytes got = port.Read(1 << 20, 3000);
  const auto start = std::find(got.begin(), got.end(), 0x3E);
  ASSERT_NE(start, got.end()) << got.size() << " bytes, no reply among them";
  ASSERT_EQ(got.end() - start, 23);  // the board information reply
  EXPECT_EQ(start[1], 0x56);
  const std::string stats = child.Say("stats");
  EXPECT_NE(stats.find("replies 1;"), std::string::npos) << stats;
  const size_t at = stats.find("garbage ");
  ASSERT_NE(at, std::string::npos) << stats;
  EXPECT_LT(std::stoull(stats.substr(at + 8)), 200000000ull) << stats;
  EXPECT_EQ(child.Wait(), 0);
}

TEST(SimCommandTest, TheBootloaderTakesFaultCommandsToo) {
  SimDeviceProcess child("bootloader");
  const std::string path = child.Say("");
  ASSERT_EQ(path.rfind("/tmp/", 0), 0u) << path;
  TestPort port(path);
  ASSERT_TRUE(port.is_open());
  ASSERT_TRUE(port.Send({0x7F}));
  EXPECT_EQ(port.Read(1), Bytes{0x79});

  EXPECT_EQ(child.Say("nack id always"), "ok: NACK for command 0x02 always");
  ASSERT_TRUE(port.Send({0x02, 0xFD}));
  EXPECT_EQ(port.Read(1), Bytes{0x1F});
  EXPECT_EQ(child.Say("nack off"), "ok: no NACK injected");
  EXPECT_EQ(child.Say("chipid 0x0410"), "ok: chip id set");
  ASSERT_TRUE(port.Send({0x02, 0xFD}));
  EXPECT_EQ(port.Read(5), (Bytes{0x79, 0x01, 0x04, 0x10, 0x79}));
  EXPECT_EQ(child.Say("nack 0x100").rfind("error:", 0), 0u);
  EXPECT_EQ(child.Say("flash 0x08000000 2"), "flash 0x08000000: FF FF");
  const std::string stats = child.Say("stats");
  EXPECT_NE(stats.find("nacks 1 (injected 1);"), std::string::npos) << stats;

  // As when the terminal window it runs in is closed.
  EXPECT_EQ(child.Wait(SIGHUP), 0);
  EXPECT_FALSE(Exists(path)) << "the port link outlived the program";
}

TEST(SimCommandTest, CtrlCEndsItCleanly) {
  SimDeviceProcess child;
  const std::string path = child.Say("");
  ASSERT_TRUE(Exists(path)) << path;
  EXPECT_EQ(child.Wait(SIGINT), 0);
  EXPECT_FALSE(Exists(path)) << "the port link outlived the program";
}

}  // namespace
