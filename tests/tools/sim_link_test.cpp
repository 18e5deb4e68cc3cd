// `vyn sim device` and the path of its port link: it makes the link only
// where nothing is, and removes on exit only a link that is still its own.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <string>

#include "tests/support/temp_dir.h"
#include "tests/tools/tool_process.h"

namespace {

using vyn::test::ReadFile;
using vyn::test::TempDir;
using vyn::test::ToolProcess;
using vyn::test::WriteFile;

bool IsLink(const std::string& path) {
  struct stat status {};
  return lstat(path.c_str(), &status) == 0 && S_ISLNK(status.st_mode);
}

TEST(SimLink, AFileAtTheLinkPathIsNeverReplacedNorRemoved) {
  for (const char* kind : {"device", "bootloader"}) {
    SCOPED_TRACE(kind);
    TempDir dir;
    const std::string path = dir.File("precious");
    WriteFile(path, "keep me");
    ToolProcess sim({"sim", kind, "--dir", dir.path(), "--name", "precious"});
    ASSERT_TRUE(sim.WaitForExit(10000));
    EXPECT_EQ(sim.exit_code(), 1);
    EXPECT_NE(sim.output().find("exists already"), std::string::npos) << sim.output();
    EXPECT_FALSE(IsLink(path));
    EXPECT_EQ(ReadFile(path), "keep me");
  }
}

TEST(SimLink, ASecondSimulatorIsRefusedAndTheFirstKeepsItsLink) {
  TempDir dir;
  const std::string path = dir.File("port");
  ToolProcess first({"sim", "device", "--dir", dir.path(), "--name", "port"});
  ASSERT_TRUE(first.WaitForOutput(path, 10000)) << first.output();
  char target[256] = {};
  ASSERT_GT(readlink(path.c_str(), target, sizeof target - 1), 0);

  ToolProcess second({"sim", "device", "--dir", dir.path(), "--name", "port"});
  ASSERT_TRUE(second.WaitForExit(10000));
  EXPECT_EQ(second.exit_code(), 1);
  EXPECT_NE(second.output().find("another simulator"), std::string::npos) << second.output();
  char after[256] = {};
  ASSERT_GT(readlink(path.c_str(), after, sizeof after - 1), 0);
  EXPECT_STREQ(after, target);

  // A replug keeps using the same link; the end of input removes it.
  first.Write("replug\n");
  ASSERT_TRUE(first.WaitForOutput("ok: plugged in", 10000)) << first.output();
  first.CloseInput();
  ASSERT_TRUE(first.WaitForExit(10000));
  EXPECT_EQ(first.exit_code(), 0);
  EXPECT_FALSE(IsLink(path));
}

TEST(SimLink, ALinkReplacedWhileRunningIsLeftAlone) {
  TempDir dir;
  const std::string path = dir.File("port");
  ToolProcess sim({"sim", "device", "--dir", dir.path(), "--name", "port"});
  ASSERT_TRUE(sim.WaitForOutput(path, 10000)) << sim.output();
  ASSERT_EQ(unlink(path.c_str()), 0);
  WriteFile(path, "someone else's");
  sim.Write("replug\n");
  ASSERT_TRUE(sim.WaitForOutput("error: replug failed", 10000)) << sim.output();
  sim.Write("unplug\n");
  ASSERT_TRUE(sim.WaitForOutput("ok: unplugged", 10000)) << sim.output();
  sim.CloseInput();
  ASSERT_TRUE(sim.WaitForExit(10000));
  EXPECT_EQ(ReadFile(path), "someone else's");
}

}  // namespace
