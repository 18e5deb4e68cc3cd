// The program the crash benchmarks end: installs the crash handlers, starts
// the given number of idle threads, prints the monotonic time in
// nanoseconds and faults at once.
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <thread>
#include <vector>

#include "vyn/diagnostics/memory_dump.h"

namespace {
volatile uintptr_t g_null_address = 0;
}

int main(int argc, char** argv) {
  const int threads = argc > 1 ? std::atoi(argv[1]) : 0;
  GetVYNMemoryDump().Initialize("bench");
  std::vector<std::thread> idle;
  for (int i = 0; i < threads; ++i) {
    idle.emplace_back([] {
      for (;;) pause();
    });
  }
  // Let every thread reach its wait, as threads of an application would be.
  timespec settle{0, 50000000};
  nanosleep(&settle, nullptr);
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  std::printf("%lld\n", static_cast<long long>(now.tv_sec) * 1000000000LL + now.tv_nsec);
  std::fflush(stdout);
  *reinterpret_cast<volatile int*>(g_null_address) = 1;
  return 0;
}
