// vyn: the command-line face of the library, usable without hardware.
#include <cstdio>
#include <cstring>
#include <string>

#include "tools/vyn/commands.h"
#include "tools/vyn/output.h"
#include "vyn/platform/stop_requests.h"

namespace {

// A first argument that is neither an option nor a subcommand is named as
// such, with the list of subcommands, instead of a generic parse error.
bool ReportUnknownSubcommand(CLI::App& app, int argc, char** argv) {
  if (argc < 2 || argv[1][0] == '-') return false;
  const std::string wanted = argv[1];
  std::string names;
  for (const CLI::App* command : app.get_subcommands({})) {
    if (command->get_name() == wanted) return false;
    names += "\n  " + command->get_name();
    if (!command->get_description().empty()) names += "  " + command->get_description();
  }
  std::fprintf(stderr, "vyn: unknown subcommand '%s'; the subcommands are:%s\n", wanted.c_str(),
               names.c_str());
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  // Writing into a closed pipe fails with EPIPE instead of ending the
  // program at once, so that commands can clean up.
  vyn::platform::IgnoreBrokenPipe();
  CLI::App app{"vyn - base services for serial-line devices, from the command line"};
  app.set_version_flag("--version", std::string("vyn ") + VYN_VERSION);
  app.require_subcommand(1);
  app.footer(
      "Numbers, wherever a command takes one, are decimal, or hexadecimal after 0x; a\n"
      "leading 0 changes nothing.");
  vyn::tool::AddDemoCommand(app);
  vyn::tool::AddSimCommand(app);
  vyn::tool::AddFrameCommand(app);
  vyn::tool::AddMonitorCommand(app);
  vyn::tool::AddSendCommand(app);
  vyn::tool::AddPluginCommand(app);
  vyn::tool::AddFirmwareCommand(app);
  vyn::tool::AddCrashTestCommand(app);
  vyn::tool::AddDumpCommand(app);
  if (ReportUnknownSubcommand(app, argc, argv)) return 2;
  int result = 0;
  try {
    app.parse(argc, argv);
  } catch (const CLI::Error& error) {
    // Parse errors and the failures that sub-commands report alike.
    result = app.exit(error);
  }
  // Output that did not arrive (a full disk, a closed pipe) fails the run.
  if (!vyn::tool::FinishOutput() && result == 0) result = 1;
  return result;
}
