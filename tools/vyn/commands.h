// The sub-commands of the vyn program; each lives in its own source file and
// registers itself on the program's command-line parser.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <vector>

#include "vyn/device/command_set.h"

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

// Builds the named request ("GetStatus", "Control", ... as `vyn frame build`
// takes them) into `frame` and returns its length; sequence number and
// checksums are left to the sender. Throws CLI::ValidationError for an
// unknown name or wrong arguments.
uint16_t BuildRequestFrame(const std::string& name, const std::vector<std::string>& args,
                           CVYNCommandSet& command_set, unsigned char* frame);
// The list of requests and their arguments, for help texts.
std::string RequestHelp();

}  // namespace vyn::tool
