// Process-wide facts: the current directory and the command line.
// Thread-safety: all functions are safe from any thread.
#pragma once

#include <string>
#include <vector>

namespace vyn::platform {

// The process's current directory; false when it cannot be read (for
// example because it has been removed).
bool GetCurrentDirectory(std::string* directory);

// The arguments the process was started with, argument 0 being the program
// as invoked; false when they cannot be read.
bool GetProcessArguments(std::vector<std::string>* arguments);

// Creates one directory level; true when it exists afterwards.
bool CreateDirectory(const std::string& path);

}  // namespace vyn::platform
