// The crash path end to end: from the fault until the process has ended
// with its dump written, and how large the dumps are.
#include <benchmark/benchmark.h>
#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

extern char** environ;

namespace {

int64_t Now() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<int64_t>(now.tv_sec) * 1000000000 + now.tv_nsec;
}

struct Crash {
  int64_t fault_to_end_ns = -1;
  uint64_t dump_bytes = 0;
};

// Runs the probe in a fresh folder whose VYN.ini sets the dump type.
Crash RunCrash(int threads, int dump_type) {
  const std::filesystem::path folder =
      std::filesystem::temp_directory_path() / ("vyn-crash-bench-" + std::to_string(getpid()));
  std::filesystem::remove_all(folder);
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "VYN.ini") << "[VYNMemoryDump]\nDumpType=" << dump_type << "\n";
  int output[2];
  if (pipe(output) != 0) return {};
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addchdir_np(&actions, folder.c_str());
  posix_spawn_file_actions_adddup2(&actions, output[1], 1);
  posix_spawn_file_actions_addclose(&actions, output[0]);
  const std::string count = std::to_string(threads);
  char* argv[] = {const_cast<char*>(VYN_CRASH_BENCH_PROBE), const_cast<char*>(count.c_str()),
                  nullptr};
  pid_t child = -1;
  posix_spawn(&child, VYN_CRASH_BENCH_PROBE, &actions, nullptr, argv, environ);
  posix_spawn_file_actions_destroy(&actions);
  close(output[1]);
  char line[64] = {};
  size_t got = 0;
  ssize_t part = 0;
  while (got < sizeof line - 1 && (part = read(output[0], line + got, sizeof line - 1 - got)) > 0) {
    got += static_cast<size_t>(part);
  }
  close(output[0]);
  int status = 0;
  waitpid(child, &status, 0);
  Crash crash;
  const int64_t ended = Now();
  if (WIFEXITED(status) && WEXITSTATUS(status) == 1) {
    crash.fault_to_end_ns = ended - std::atoll(line);
    for (const auto& item : std::filesystem::directory_iterator(folder / "Dumps")) {
      crash.dump_bytes = std::filesystem::file_size(item.path());
    }
  }
  std::filesystem::remove_all(folder);
  return crash;
}

void BM_FaultToProcessEnd(benchmark::State& state) {
  const int threads = static_cast<int>(state.range(0));
  const int dump_type = static_cast<int>(state.range(1));
  uint64_t bytes = 0;
  for (auto _ : state) {
    const Crash crash = RunCrash(threads, dump_type);
    if (crash.fault_to_end_ns < 0) {
      state.SkipWithError("the probe did not end with exit code 1");
      break;
    }
    state.SetIterationTime(static_cast<double>(crash.fault_to_end_ns) / 1e9);
    bytes = crash.dump_bytes;
  }
  state.counters["dump_bytes"] = static_cast<double>(bytes);
}
// Threads beside the crashing one; dump type 0 (stacks only) and 2 (full
// memory).
BENCHMARK(BM_FaultToProcessEnd)
    ->ArgNames({"threads", "dump_type"})
    ->Args({10, 0})
    ->Args({200, 0})
    ->Args({10, 2})
    ->Args({200, 2})
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond)
    ->Iterations(10);

}  // namespace
BENCHMARK_MAIN();
