// The console both simulators share: the report of a start that failed, and
// the loop that reads commands from standard input until it ends, 'quit' or
// Ctrl-C.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "support/console_input.h"

namespace vyn::tool {

// The words of a command line, split at blanks and tabs.
std::vector<std::string_view> SplitWords(std::string_view line);

// Says on standard error why `command` could not start its simulator
// (`what`, e.g. "device"): its link `path` was taken, or it failed otherwise.
// Returns the exit code, 1.
int ReportSimulatorStartFailure(const char* command, const char* what, const std::string& path,
                                bool link_taken);

// Prints `port_path` as the first line, then hands the words of each
// non-empty input line to `run` until it returns false or the input ends.
void RunSimulatorConsole(support::ConsoleInput& input, const std::string& port_path,
                         const std::function<bool(const std::vector<std::string_view>&)>& run);

}  // namespace vyn::tool
