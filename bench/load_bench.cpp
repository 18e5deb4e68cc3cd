// Loading and unloading the shared library: what an application pays at
// start and end for constructing and destroying every singleton.
#include <benchmark/benchmark.h>
#include <dlfcn.h>

namespace {

void BM_LoadUnloadLibrary(benchmark::State& state) {
  for (auto _ : state) {
    void* library = dlopen(VYN_SHARED_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    if (library == nullptr) {
      state.SkipWithError(dlerror());
      return;
    }
    dlclose(library);
  }
}
BENCHMARK(BM_LoadUnloadLibrary);

}  // namespace

BENCHMARK_MAIN();
