#include "tests/diagnostics/crash_test_support.h"

#include <algorithm>
#include <filesystem>

namespace vyn::test {
namespace {

// The sanitizers' own reports of these signals would end the probe before
// the library's handlers run.
std::vector<std::string> SanitizerOptions() {
#if defined(__SANITIZE_ADDRESS__)
  return {
      "ASAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:"
      "handle_abort=0:allow_user_segv_handler=1:detect_leaks=0",
      "UBSAN_OPTIONS=print_stacktrace=1"};
#elif defined(__SANITIZE_THREAD__)
  return {
      "TSAN_OPTIONS=handle_segv=0:handle_sigbus=0:handle_sigfpe=0:handle_sigill=0:"
      "handle_abort=0:allow_user_segv_handler=1:report_signal_unsafe=0"};
#else
  return {};
#endif
}

}  // namespace

std::vector<std::string> DumpsIn(const std::string& folder) {
  std::vector<std::string> dumps;
  std::error_code ignored;
  for (const auto& item : std::filesystem::directory_iterator(folder + "/Dumps", ignored)) {
    dumps.push_back(item.path().string());
  }
  std::sort(dumps.begin(), dumps.end());
  return dumps;
}

ProbeRun RunProbe(const std::string& folder, const std::vector<std::string>& arguments,
                  const std::vector<std::string>& environment, const std::string& program,
                  int timeout_seconds) {
  std::vector<std::string> argv = {"/usr/bin/env", "-C", folder,           "-u",
                                   "DISPLAY",      "-u", "WAYLAND_DISPLAY"};
  for (const std::string& option : SanitizerOptions()) argv.push_back(option);
  argv.insert(argv.end(), environment.begin(), environment.end());
  argv.push_back(program);
  argv.insert(argv.end(), arguments.begin(), arguments.end());
  ProbeRun run;
  run.result = RunChild(argv, timeout_seconds);
  run.dumps = DumpsIn(folder);
  return run;
}

std::string AskLldb(const std::string& program, const std::string& dump,
                    const std::vector<std::string>& commands) {
  std::vector<std::string> argv = {"/usr/bin/lldb-14", "--batch", "--no-lldbinit", "-o",
                                   "target create --core \"" + dump + "\" \"" + program + "\""};
  for (const std::string& command : commands) {
    argv.push_back("-o");
    argv.push_back(command);
  }
  return RunChild(argv, 120).output;
}

}  // namespace vyn::test
