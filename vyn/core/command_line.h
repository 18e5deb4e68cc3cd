// CVYNCommandLine: the arguments the process was started with, one at a
// time. Argument 0 is the program as invoked.
//
// Thread-safety: no lock. The first Initialize or GetArgument fills the
// arguments; call it once before sharing the object between threads.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vyn/base/export.h"

class VYN_EXPORT CVYNCommandLine {
 public:
  CVYNCommandLine() = default;
  virtual ~CVYNCommandLine();
  CVYNCommandLine(const CVYNCommandLine&) = delete;
  CVYNCommandLine& operator=(const CVYNCommandLine&) = delete;

  // Reads the arguments once; later calls return VYN_STATUS_SUCCESS without
  // reading again. VYN_STATUS_UNSPECIFIC_ERROR when they cannot be read.
  int32_t Initialize();
  // Copies argument `index`; VYN_STATUS_INVALID_PARAMETER, with `argument`
  // untouched, for an index outside 0 .. count - 1.
  int32_t GetArgument(int32_t index, std::string& argument);

 private:
  bool initialized_ = false;
  std::vector<std::string> arguments_;
  int32_t argument_count_ = 0;
};

// The process's one CVYNCommandLine, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNCommandLine& GetVYNCommandLine();
