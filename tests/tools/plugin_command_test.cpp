// `vyn plugin` as a user drives it: a sequence from the command line, and the
// shell on a terminal of its own, where the example dialog asks its question.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <chrono>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "support/pseudo_terminal.h"
#include "tests/support/child_process.h"
#include "vyn/platform/descriptor_io.h"

extern char** environ;

namespace vyn::test {
namespace {

const std::string kCounter = VYN_EXAMPLE_EVENT_COUNTER;
const std::string kDialog = VYN_EXAMPLE_DIALOG;

TEST(PluginCommand, LoadRunsTheSequenceAndTellsEveryResult) {
  const ChildResult run =
      RunChild({VYN_TOOL, "plugin", "load", kCounter, VYN_EXAMPLE_BROKEN_NO_INITIALIZE, kDialog,
                "-e", "5", "-e", "0x7:text", "-e", "1000", "--list"});
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

// The shell as the only program on a new terminal, without a display.
class TerminalShell {
 public:
  TerminalShell() {
    if (!terminal_.Open()) return;
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETSID);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    // Opened by the new session's leader, the terminal becomes its own.
    posix_spawn_file_actions_addopen(&actions, 0, terminal_.slave_path().c_str(), O_RDWR, 0);
    posix_spawn_file_actions_adddup2(&actions, 0, 1);
    posix_spawn_file_actions_adddup2(&actions, 0, 2);
    // Without a display, the dialog asks on the terminal.
    std::vector<std::string> args = {"/usr/bin/env",    "-u",     "DISPLAY", "-u",
                                     "WAYLAND_DISPLAY", VYN_TOOL, "plugin",  "shell"};
    std::vector<char*> argv;
    for (std::string& arg : args) argv.push_back(arg.data());
    argv.push_back(nullptr);
    if (posix_spawn(&pid_, argv[0], &actions, &attributes, argv.data(), environ) != 0) pid_ = -1;
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attributes);
  }
  ~TerminalShell() {
    if (pid_ <= 0) return;
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
    while (waitpid(pid_, nullptr, WNOHANG) == 0) {
      if (std::chrono::steady_clock::now() > deadline) kill(pid_, SIGKILL);
      std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
  }
  TerminalShell(const TerminalShell&) = delete;
  TerminalShell& operator=(const TerminalShell&) = delete;

  bool started() const { return pid_ > 0; }
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
  support::PseudoTerminal terminal_;
  pid_t pid_ = -1;
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
