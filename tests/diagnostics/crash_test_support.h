// What the crash tests share: running the crash probe in folders of its
// own, finding the dumps it left, and asking LLDB about them.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/child_process.h"
#include "tests/support/temp_dir.h"

namespace vyn::test {

// Threads of the runtime beside the program's own (ThreadSanitizer keeps a
// background thread in every process).
#if defined(__SANITIZE_THREAD__)
inline constexpr size_t kRuntimeThreads = 1;
#else
inline constexpr size_t kRuntimeThreads = 0;
#endif

struct Probe {
  std::vector<std::string> arguments{};
  std::string ini{};                       // the [VYNMemoryDump] lines of VYN.ini, if any
  std::vector<std::string> environment{};  // "NAME=value" added
  bool dumps_taken = false;                // a file named "Dumps" is in the folder's way
  std::string program = VYN_CRASH_PROBE;
};

struct ProbeRun {
  std::shared_ptr<TempDir> folder;  // the probe's current directory
  ChildResult result;
  std::vector<std::string> dumps;  // paths below <folder>/Dumps, sorted
};

// Runs every probe at the same time, each in a new folder of its own, with
// the sanitizers told to leave the fatal signals to the library.
std::vector<ProbeRun> RunProbes(const std::vector<Probe>& probes);

inline size_t CountOf(const std::string& text, const std::string& part) {
  size_t count = 0;
  for (size_t at = text.find(part); at != std::string::npos; at = text.find(part, at + 1)) ++count;
  return count;
}

// The text of every file below <folder>/Logs.
std::string LoggedText(const std::string& folder);

// LLDB's answer to `commands` (one per -o) on each dump, with the program
// that wrote it as target, from one LLDB session: one answer per dump.
struct LldbQuestion {
  std::string program;
  std::string dump;
};
std::vector<std::string> AskLldb(const std::vector<LldbQuestion>& questions,
                                 const std::vector<std::string>& commands);

}  // namespace vyn::test
