// The requests the vyn program can build, by name, as `vyn frame build`,
// `vyn send` and `vyn demo` take them: one table of names, argument usage
// and builders, so the three commands accept exactly the same requests.
//
// Thread-safety: the table is built once and only read; BuildRequestFrame
// uses only the command set it is given.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vyn/device/command_set.h"

namespace vyn::tool {

// Builds the named request ("GetStatus", "Control", ...) into `frame` and
// returns its length; sequence number and checksums are left to the sender.
// Numbers in `args` follow the program's number rule (number_grammar.h).
// Throws CLI::ValidationError for an unknown name or wrong arguments.
uint16_t BuildRequestFrame(const std::string& name, const std::vector<std::string>& args,
                           CVYNCommandSet& command_set, unsigned char* frame);

// The list of requests and their arguments, for help texts.
std::string RequestHelp();

}  // namespace vyn::tool
