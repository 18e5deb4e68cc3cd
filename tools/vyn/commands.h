// The sub-commands of the vyn program; each lives in its own source file and
// registers itself on the program's command-line parser.
#pragma once

#include <CLI/CLI.hpp>

namespace vyn::tool {

void AddDemoCommand(CLI::App& app);
void AddSimCommand(CLI::App& app);
// `vyn sim bootloader`, below the `sim` command.
void AddSimBootLoaderCommand(CLI::App& sim);
void AddFrameCommand(CLI::App& app);
void AddMonitorCommand(CLI::App& app);
void AddSendCommand(CLI::App& app);
void AddPluginCommand(CLI::App& app);
void AddFirmwareCommand(CLI::App& app);
void AddCrashTestCommand(CLI::App& app);
void AddDumpCommand(CLI::App& app);

}  // namespace vyn::tool
