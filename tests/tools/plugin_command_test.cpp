// `vyn plugin` as a user drives it: a sequence from the command line, and the
// shell on a terminal of its own, where the example dialog asks its question.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <utility>

#include "support/pseudo_terminal.h"
#include "tests/support/child_process.h"
#include "vyn/platform/descriptor_io.h"

namespace vyn::test {
namespace {

const std::string kCounter = VYN_EXAMPLE_EVENT_COUNTER;
const std::string kDialog = VYN_EXAMPLE_DIALOG;

TEST(PluginCommand, LoadRunsTheSequenceAndTellsEveryResult) {
  const ChildResult run = RunVyn({"plugin", "load", kCounter, VYN_EXAMPLE_BROKEN_NO_INITIALIZE,
                                  kDialog, "-e", "5", "-e", "0x7:text", "-e", "1000", "--list"});
  EXPECT_EQ(run.exit_code, 1);  // one load failed
  EXPECT_EQ(run.output, "load " + kCounter + ": 0 (VYN_STATUS_SUCCESS)\n" +
                            "load " VYN_EXAMPLE_BROKEN_NO_INITIALIZE
                            ": -1 (VYN_STATUS_UNSPECIFIC_ERROR)\n" +
                            "load " + kDialog + ": 0 (VYN_STATUS_SUCCESS)\n" + "0 " + kCounter +
                            " [events]\n" + "1 " + kDialog + " [dialog]\n" + "event 5 to " +
                            kCounter + ": 0 (VYN_STATUS_SUCCESS)\n" + "event 7 to " + kCounter +
                            ": 0 (VYN_STATUS_SUCCESS)\n" + "event 1000 to " + kCounter + ": 2\n" +
                            "unload " + kCounter + ": 0 (VYN_STATUS_SUCCESS)\n" + "unload " +
                            kDialog + ": 0 (VYN_STATUS_SUCCESS)\n");
}

// The shell as the only program on a new terminal, without a display: the
// new session's leader opens the terminal, which makes it its own.
class TerminalShell {
 public:
  TerminalShell()
      : opened_(terminal_.Open()), shell_({"/usr/bin/setsid", "/bin/sh", "-c", Command()}) {}

  bool started() const { return opened_ && shell_.started(); }
  void Type(const std::string& text) {
    platform::WriteDescriptor(terminal_.master_descriptor(),
                              reinterpret_cast<const uint8_t*>(text.data()), text.size());
  }
  // What the shell shows from the end of the last match up to the end of the
  // next `text` (all that came when it does not come within 30 s).
  std::string ReadUntil(const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    size_t found = std::string::npos;
    while ((found = shown_.find(text, read_)) == std::string::npos &&
           std::chrono::steady_clock::now() < deadline) {
      platform::WaitForDescriptor(terminal_.master_descriptor(), false, nullptr, 100);
      uint8_t buffer[512];
      const auto got =
          platform::ReadDescriptor(terminal_.master_descriptor(), buffer, sizeof buffer);
      if (got.status == platform::IoStatus::kDone) shown_.append(buffer, buffer + got.count);
    }
    const size_t end = found == std::string::npos ? shown_.size() : found + text.size();
    return shown_.substr(std::exchange(read_, end), end - read_);
  }

 private:
  std::string Command() const {
    return "exec env -u DISPLAY -u WAYLAND_DISPLAY '" VYN_TOOL "' plugin shell <>'" +
           terminal_.slave_path() + "' >&0 2>&0";
  }

  support::PseudoTerminal terminal_;
  bool opened_;
  ChildProcess shell_;
  std::string shown_;
  size_t read_ = 0;
};

TEST(PluginCommand, ShellAsksTheDialogsQuestionOnItsTerminal) {
  TerminalShell shell;
  ASSERT_TRUE(shell.started());
  shell.Type("load " + kDialog + "\nsend " + kDialog + " 1\ndialog " + kDialog + "\n");
  EXPECT_EQ(shell.ReadUntil("[y/N] "),
            "load " + kDialog + ": 0 (VYN_STATUS_SUCCESS)\n" + "event 1 to " + kDialog +
                ": -18 (VYN_STATUS_NOT_IMPLEMENTED)\n" + "The example plug-in asks: go on? [y/N] ");
  shell.Type("yes, please\n");
  EXPECT_EQ(shell.ReadUntil("\n"), "dialog " + kDialog + ": 0 (VYN_STATUS_SUCCESS)\n");
  // An empty answer is a no; the line after it is the shell's again.
  shell.Type("dialog " + kDialog + "\n");
  shell.ReadUntil("[y/N] ");
  shell.Type("\nquit\n");
  EXPECT_EQ(shell.ReadUntil("unload " + kDialog + ": 0 (VYN_STATUS_SUCCESS)\n"),
            "dialog " + kDialog + ": -5 (VYN_STATUS_OPERATION_BROKEN)\n" + "unload " + kDialog +
                ": 0 (VYN_STATUS_SUCCESS)\n");
}

}  // namespace
}  // namespace vyn::test
