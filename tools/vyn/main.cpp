// vyn: the command-line face of the library, usable without hardware.
#include <cstdio>

#include "tools/vyn/commands.h"

int main(int argc, char** argv) {
  CLI::App app{"vyn - base services for serial-line devices, from the command line"};
  app.set_version_flag("--version", std::string("vyn ") + VYN_VERSION);
  app.require_subcommand(1);
  vyn::tool::AddDemoCommand(app);
  vyn::tool::AddSimCommand(app);
  vyn::tool::AddFrameCommand(app);
  vyn::tool::AddMonitorCommand(app);
  vyn::tool::AddSendCommand(app);
  vyn::tool::AddPluginCommand(app);
  vyn::tool::AddFirmwareCommand(app);
  vyn::tool::AddCrashTestCommand(app);
  vyn::tool::AddDumpCommand(app);
  try {
    app.parse(argc, argv);
  } catch (const CLI::Error& error) {
    // Parse errors and the failures that sub-commands report alike.
    return app.exit(error);
  }
  return 0;
}
