// Plug-in manager costs: an event to one plug-in by name and to all of 1 and
// 4 plug-ins, each against a plain call through the entry point, and a load
// and unload of a library that stays in the process.
#include <benchmark/benchmark.h>

#include <string>
#include <vector>

#include "vyn/core/status.h"
#include "vyn/plugins/plugin_manager.h"

namespace {

const std::string kCounter = VYN_EXAMPLE_EVENT_COUNTER;

// The counter under `count` names ("dir/./x.so", "dir/././x.so", ...): one
// library, several plug-ins.
std::vector<std::string> CounterNames(int count) {
  std::vector<std::string> names;
  const size_t slash = kCounter.find_last_of('/');
  std::string dots;
  for (int i = 0; i < count; ++i, dots += "./") {
    names.push_back(kCounter.substr(0, slash + 1) + dots + kCounter.substr(slash + 1));
  }
  return names;
}

void LoadAll(const std::vector<std::string>& names, benchmark::State& state) {
  for (const std::string& name : names) {
    if (GetVYNPluginManager().LoadPlugin(name) != VYN_STATUS_SUCCESS) {
      state.SkipWithError("the event counter does not load");
    }
  }
}

void BM_DirectCall(benchmark::State& state) {
  LoadAll(CounterNames(1), state);
  const VYNPluginProcessEventFunction handler =
      GetVYNPluginManager().GetPlugin(kCounter)->pfnProcessEvent;
  for (auto _ : state) benchmark::DoNotOptimize(handler(1, nullptr));
  GetVYNPluginManager().UnloadAllPlugins();
}
BENCHMARK(BM_DirectCall);

void BM_EventToOneByName(benchmark::State& state) {
  const std::vector<std::string> names = CounterNames(static_cast<int>(state.range(0)));
  LoadAll(names, state);
  for (auto _ : state) {
    benchmark::DoNotOptimize(
        GetVYNPluginManager().CallPluginProcessEvent(names.back(), 1, nullptr, false));
  }
  GetVYNPluginManager().UnloadAllPlugins();
}
BENCHMARK(BM_EventToOneByName)->Arg(1)->Arg(4);

void BM_EventToAll(benchmark::State& state) {
  LoadAll(CounterNames(static_cast<int>(state.range(0))), state);
  for (auto _ : state)
    benchmark::DoNotOptimize(GetVYNPluginManager().CallPluginProcessEvent(1, nullptr));
  state.SetItemsProcessed(state.iterations() * state.range(0));
  GetVYNPluginManager().UnloadAllPlugins();
}
BENCHMARK(BM_EventToAll)->Arg(1)->Arg(4);

void BM_LoadAndUnload(benchmark::State& state) {
  CVYNPluginManager& manager = GetVYNPluginManager();
  for (auto _ : state) {
    CVYNPlugin* plugin = nullptr;
    if (manager.LoadPlugin(kCounter, &plugin) != VYN_STATUS_SUCCESS) {
      state.SkipWithError("the event counter does not load");
      break;
    }
    manager.UnloadPlugin(plugin);
  }
}
BENCHMARK(BM_LoadAndUnload);

}  // namespace

BENCHMARK_MAIN();
