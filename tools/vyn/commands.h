// The sub-commands of the vyn program; each lives in its own source file and
// registers itself on the program's command-line parser.
#pragma once

#include <CLI/CLI.hpp>

namespace vyn::tool {

void AddDemoCommand(CLI::App& app);
void AddSimCommand(CLI::App& app);
void AddFrameCommand(CLI::App& app);

}  // namespace vyn::tool
