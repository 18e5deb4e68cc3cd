// What the crash tests share: running the crash probe in a folder of its
// own, finding the dumps it left, and asking LLDB about them.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "tests/support/child_process.h"

namespace vyn::test {

// Threads of the runtime beside the program's own (ThreadSanitizer keeps a
// background thread in every process).
#if defined(__SANITIZE_THREAD__)
inline constexpr size_t kRuntimeThreads = 1;
#else
inline constexpr size_t kRuntimeThreads = 0;
#endif

struct ProbeRun {
  ChildResult result;
  std::vector<std::string> dumps;  // paths below <folder>/Dumps, sorted
};

// Runs `program` (the crash probe by default) with `arguments` in `folder`,
// with `environment` ("NAME=value") added, and the sanitizers told to leave
// the fatal signals to the library.
ProbeRun RunProbe(const std::string& folder, const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment = {},
                  const std::string& program = VYN_CRASH_PROBE, int timeout_seconds = 120);

std::vector<std::string> DumpsIn(const std::string& folder);

// LLDB's answer to `commands` (one per -o) on the dump, with the program
// that wrote it as target.
std::string AskLldb(const std::string& program, const std::string& dump,
                    const std::vector<std::string>& commands);

}  // namespace vyn::test
