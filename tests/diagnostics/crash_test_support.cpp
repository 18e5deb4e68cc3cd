#include "tests/diagnostics/crash_test_support.h"

#include <algorithm>
#include <filesystem>
#include <future>

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

std::vector<std::string> FilesIn(const std::string& folder) {
  std::vector<std::string> files;
  std::error_code ignored;
  for (const auto& item : std::filesystem::directory_iterator(folder, ignored)) {
    files.push_back(item.path().string());
  }
  std::sort(files.begin(), files.end());
  return files;
}

ProbeRun RunProbe(const Probe& probe) {
  ProbeRun run;
  run.folder = std::make_shared<TempDir>();
  if (!probe.ini.empty()) WriteFile(run.folder->File("VYN.ini"), "[VYNMemoryDump]\n" + probe.ini);
  if (probe.dumps_taken) WriteFile(run.folder->File("Dumps"), "not a folder");
  std::vector<std::string> argv = {"/usr/bin/env", "-C", run.folder->path(), "-u",
                                   "DISPLAY",      "-u", "WAYLAND_DISPLAY"};
  for (const std::string& option : SanitizerOptions()) argv.push_back(option);
  argv.insert(argv.end(), probe.environment.begin(), probe.environment.end());
  argv.push_back(probe.program);
  argv.insert(argv.end(), probe.arguments.begin(), probe.arguments.end());
  run.result = RunChild(argv, 120);
  run.dumps = FilesIn(run.folder->File("Dumps"));
  return run;
}

}  // namespace

std::vector<ProbeRun> RunProbes(const std::vector<Probe>& probes) {
  std::vector<std::future<ProbeRun>> running;
  for (const Probe& probe : probes) {
    running.push_back(std::async(std::launch::async, [&probe] { return RunProbe(probe); }));
  }
  std::vector<ProbeRun> runs;
  for (auto& run : running) runs.push_back(run.get());
  return runs;
}

std::string LoggedText(const std::string& folder) {
  std::string text;
  for (const std::string& file : FilesIn(folder + "/Logs")) text += ReadFile(file);
  return text;
}

std::vector<std::string> AskLldb(const std::vector<LldbQuestion>& questions,
                                 const std::vector<std::string>& commands) {
  std::vector<std::string> argv = {"/usr/bin/lldb-14", "--batch", "--no-lldbinit"};
  for (const LldbQuestion& question : questions) {
    argv.push_back("-o");
    argv.push_back("target create --core \"" + question.dump + "\" \"" + question.program + "\"");
    for (const std::string& command : commands) {
      argv.push_back("-o");
      argv.push_back(command);
    }
  }
  // LLDB echoes each command: an answer runs from one target's creation to
  // the next.
  const std::string output = RunChild(argv, 240).output;
  const std::string marker = "(lldb) target create --core";
  std::vector<std::string> answers;
  for (size_t at = output.find(marker); at != std::string::npos;) {
    const size_t next = output.find(marker, at + 1);
    answers.push_back(output.substr(at, next == std::string::npos ? next : next - at));
    at = next;
  }
  return answers;
}

}  // namespace vyn::test
