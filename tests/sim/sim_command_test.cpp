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

#include <cerrno>
#include <string>

#include "tests/sim/test_port.h"

extern char** environ;

namespace {

using vyn::test::Bytes;
using vyn::test::FrameView;
using vyn::test::TestPort;

class SimDeviceProcess {
 public:
  SimDeviceProcess() {
    int input[2];
    int output[2];
    if (pipe2(input, O_CLOEXEC) != 0 || pipe2(output, O_CLOEXEC) != 0) return;
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_adddup2(&actions, input[0], 0);
    posix_spawn_file_actions_adddup2(&actions, output[1], 1);
    char* argv[] = {const_cast<char*>(VYN_TOOL), const_cast<char*>("sim"),
                    const_cast<char*>("device"), nullptr};
    if (posix_spawn(&pid_, VYN_TOOL, &actions, nullptr, argv, environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    close(input[0]);
    close(output[1]);
    to_child_ = input[1];
    from_child_ = output[0];
  }
  ~SimDeviceProcess() {
    CloseInput();
    if (from_child_ >= 0) close(from_child_);
    if (pid_ > 0) {
      kill(pid_, SIGKILL);
      Wait();
    }
  }

  void Say(const std::string& line) {
    const std::string text = line + "\n";
    ASSERT_EQ(write(to_child_, text.data(), text.size()), static_cast<ssize_t>(text.size()));
  }

  // The next line of output, or empty after a few seconds.
  std::string Line() {
    std::string line;
    char c;
    pollfd watched{from_child_, POLLIN, 0};
    while (poll(&watched, 1, 5000) > 0 && read(from_child_, &c, 1) == 1 && c != '\n') {
      line.push_back(c);
    }
    return line;
  }

  void CloseInput() {
    if (to_child_ >= 0) close(to_child_);
    to_child_ = -1;
  }

  void Interrupt() { kill(pid_, SIGINT); }

  int Wait() {
    if (pid_ <= 0) return -1;
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

TEST(SimCommandTest, PrintsThePortFirstAndTakesFaultCommands) {
  SimDeviceProcess child;
  const std::string path = child.Line();
  ASSERT_EQ(path.rfind("/tmp/", 0), 0u) << path;
  TestPort port(path);
  ASSERT_TRUE(port.is_open());

  child.Say("garbage 3");
  EXPECT_EQ(child.Line(), "ok: garbage sent");
  child.Say("badsum header");
  EXPECT_EQ(child.Line(), "ok: the next frame has a wrong header checksum");
  ASSERT_TRUE(port.Send({0x3E, 0x56, 0x00, 0x56, 0x00}));
  const Bytes got = port.ReadCount(3 + 23);
  ASSERT_EQ(got.size(), 26u);
  const Bytes reply(got.begin() + 3, got.end());
  EXPECT_EQ(FrameView(reply).id(), 0x56u);
  EXPECT_FALSE(FrameView(reply).header_ok());

  child.Say("stall x");
  EXPECT_EQ(child.Line().rfind("error:", 0), 0u);
  child.Say("stats");
  const std::string stats = child.Line();
  EXPECT_NE(stats.find("requests 1;"), std::string::npos) << stats;
  EXPECT_NE(stats.find("garbage 3;"), std::string::npos) << stats;

  child.Say("unplug");
  EXPECT_EQ(child.Line(), "ok: unplugged");
  EXPECT_TRUE(port.WaitForHangUp(2000));
  child.Say("replug");
  EXPECT_EQ(child.Line(), "ok: plugged in");
  EXPECT_TRUE(TestPort(path).is_open());

  child.CloseInput();
  EXPECT_EQ(child.Wait(), 0);
  struct stat info {};
  EXPECT_NE(lstat(path.c_str(), &info), 0) << "the port link outlived the program";
}

TEST(SimCommandTest, CtrlCEndsItCleanly) {
  SimDeviceProcess child;
  const std::string path = child.Line();
  struct stat info {};
  ASSERT_EQ(lstat(path.c_str(), &info), 0) << path;
  child.Interrupt();
  EXPECT_EQ(child.Wait(), 0);
  EXPECT_NE(lstat(path.c_str(), &info), 0) << "the port link outlived the program";
}

}  // namespace
