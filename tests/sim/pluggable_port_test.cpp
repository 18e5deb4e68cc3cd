// The simulators' port: who owns the link, and the plug handshake with the
// serving thread.
#include "sim/pluggable_port.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <string>

#include "support/file_system.h"
#include "tests/sim/test_port.h"
#include "tests/support/temp_dir.h"

namespace {

using vyn::sim::PluggablePort;

// A port whose thread only serves plug requests, counting line changes.
struct CountingPort {
  explicit CountingPort(const std::string& directory, const std::string& name = "port")
      : port({directory, name, false}, [this] { ++changes; }) {}
  bool Start() {
    return port.Start([this] {
      vyn::MutexLock lock(&port.mutex());
      while (port.NextRound()) port.WaitForOpen(std::nullopt);
    });
  }
  std::atomic<int> changes{0};
  PluggablePort port;
};

TEST(PluggablePortTest, MakesItsLinkOnlyWhereNothingIsAndRemovesOnlyItsOwn) {
  vyn::test::TempDir dir;
  vyn::test::WriteFile(dir.File("taken"), "keep me");
  CountingPort refused(dir.path(), "taken");
  EXPECT_FALSE(refused.Start());
  EXPECT_TRUE(refused.port.LinkTaken());
  EXPECT_EQ(vyn::test::ReadFile(dir.File("taken")), "keep me");

  // Its own directory and link go with Stop(); a second Start() is refused.
  CountingPort own("");
  ASSERT_TRUE(own.Start());
  EXPECT_FALSE(own.Start());
  const std::string path = own.port.path();
  EXPECT_TRUE(vyn::support::IsSymbolicLinkTo(path, own.port.terminal_path()));
  own.port.Stop();
  EXPECT_EQ(access(path.substr(0, path.rfind('/')).c_str(), F_OK), -1);
  EXPECT_FALSE(own.port.Unplug());
  EXPECT_EQ(own.changes, 2);

  // A link someone replaced meanwhile is neither re-pointed nor removed.
  CountingPort shared(dir.path());
  ASSERT_TRUE(shared.Start());
  ASSERT_EQ(unlink(shared.port.path().c_str()), 0);
  vyn::test::WriteFile(shared.port.path(), "someone else's");
  EXPECT_FALSE(shared.port.Replug());
  EXPECT_TRUE(shared.port.Unplug());
  shared.port.Stop();
  EXPECT_EQ(vyn::test::ReadFile(shared.port.path()), "someone else's");
}

TEST(PluggablePortTest, UnplugHangsUpAndReplugSwapsTheTerminalUnderTheSamePath) {
  CountingPort device("");
  ASSERT_TRUE(device.Start());
  const std::string path = device.port.path();
  vyn::test::TestPort user(path);
  const std::string first = device.port.terminal_path();
  ASSERT_TRUE(device.port.Replug());
  EXPECT_TRUE(user.WaitForHangUp(2000));
  EXPECT_TRUE(vyn::support::IsSymbolicLinkTo(path, device.port.terminal_path()));
  EXPECT_NE(device.port.terminal_path(), first);

  ASSERT_TRUE(device.port.Unplug());
  EXPECT_FALSE(device.port.IsPlugged());
  EXPECT_FALSE(vyn::test::TestPort(path).is_open());
  EXPECT_TRUE(device.port.Unplug()) << "unplugging twice is no failure";
  ASSERT_TRUE(device.port.Replug());
  EXPECT_TRUE(vyn::test::TestPort(path).is_open());
  EXPECT_EQ(device.changes, 4);  // start, swap, unplug, replug
}

}  // namespace
