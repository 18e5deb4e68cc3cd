#include "tools/vyn/simulator_console.h"

#include <algorithm>
#include <cstdio>

#include "tools/vyn/output.h"

namespace vyn::tool {

std::vector<std::string_view> SplitWords(std::string_view line) {
  std::vector<std::string_view> words;
  size_t at = 0;
  while (at < line.size()) {
    const size_t start = line.find_first_not_of(" \t", at);
    if (start == std::string_view::npos) break;
    const size_t end = std::min(line.find_first_of(" \t", start), line.size());
    words.push_back(line.substr(start, end - start));
    at = end;
  }
  return words;
}

int ReportSimulatorStartFailure(const char* command, const char* what, const std::string& path,
                                bool link_taken) {
  if (link_taken) {
    std::fprintf(stderr,
                 "%s: %s exists already (another simulator, or a file that is not ours); choose "
                 "another --name or --dir\n",
                 command, path.c_str());
  } else {
    std::fprintf(stderr, "%s: the simulated %s could not be started\n", command, what);
  }
  return 1;
}

void RunSimulatorConsole(support::ConsoleInput& input, const std::string& port_path,
                         const std::function<bool(const std::vector<std::string_view>&)>& run) {
  PrintOutput("%s\n", port_path.c_str());
  std::string line;
  while (input.ReadLine(&line) == support::ConsoleInput::Result::kLine) {
    const std::vector<std::string_view> words = SplitWords(line);
    if (words.empty()) continue;
    if (!run(words)) break;
  }
}

}  // namespace vyn::tool
