// The library's helper programs (the dump writer, the message-box host) and
// the library's own file, found once, before anything can crash.
//
// A helper is looked for, in this order: in the folder named by the
// environment variable VYN_LIBEXEC_DIR (for programs that link the library
// statically or run from an unusual layout); beside the library file; in the
// installation's helper folder relative to the library; in the helper folder
// the library was configured with.
//
// Thread-safety: the functions keep no state.
#pragma once

#include <string>

namespace vyn::platform {

// The file of the loaded object that holds the library's code: the shared
// library, or the program that links the library statically. Empty when the
// system cannot tell.
std::string GetLibraryPath();

// The full path of the helper program `name`, or empty when no executable
// file of that name is found.
std::string FindHelperProgram(const std::string& name);

// Keeps the shared library loaded until the process ends, so that handlers
// and hooks that point into it never lead into unloaded code. Does nothing
// for a program that links the library statically.
void PinLibrary();

// The file name (without folder) of the running program; empty when it
// cannot be read.
std::string GetProgramFileName();

}  // namespace vyn::platform
