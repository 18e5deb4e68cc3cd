// A plug-in for the tests: it writes what happens to it into a journal that
// the test hands over, and on request calls back into the manager from
// inside its entry points. Built twice, as probe_a and probe_b (PROBE_NAME).
#include <atomic>
#include <chrono>
#include <cstdio>
#include <future>
#include <memory>
#include <stdexcept>
#include <string>
#include <thread>

#include "tests/plugins/probes/probe_protocol.h"
#include "vyn/core/status.h"
#include "vyn/plugins/plugin_entry_points.h"
#include "vyn/plugins/plugin_manager.h"

using vyn::test::ProbeJournal;

namespace {

ProbeJournal* g_journal = nullptr;
bool g_throw_on_terminate = false;
bool g_announce_terminate = false;

// Cleared when the plug-in's static objects are destroyed (a trivially
// destructible flag, so it can still be read afterwards).
bool g_statics_alive = false;
struct StaticsSentinel {
  StaticsSentinel() { g_statics_alive = true; }
  ~StaticsSentinel() { g_statics_alive = false; }
  StaticsSentinel(const StaticsSentinel&) = delete;
  StaticsSentinel& operator=(const StaticsSentinel&) = delete;
};
const StaticsSentinel g_sentinel;

void Note(const std::string& what) {
  if (g_journal != nullptr) g_journal->Add(std::string(PROBE_NAME) + " " + what);
}

// The first listed record whose event handler is this library's.
CVYNPlugin* OwnRecord() {
  CVYNPluginManager& manager = GetVYNPluginManager();
  std::string name;
  for (int32_t i = 0; manager.GetPlugin(i, name) == VYN_STATUS_SUCCESS; ++i) {
    CVYNPlugin* plugin = manager.GetPlugin(name);
    if (plugin != nullptr && plugin->pfnProcessEvent == &PluginProcessEvent) return plugin;
  }
  return nullptr;
}

}  // namespace

VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) {
  Note("PluginInitialize");
  return VYN_STATUS_SUCCESS;
}

VYN_PLUGIN_EXPORT void PluginTerminate(void) {
  Note("PluginTerminate");
  if (g_announce_terminate) {
    std::printf("%s PluginTerminate, own objects %s\n", PROBE_NAME,
                g_statics_alive ? "alive" : "destroyed");
    std::fflush(stdout);
  }
  if (g_throw_on_terminate) {
    g_throw_on_terminate = false;
    throw std::logic_error("probe terminate");
  }
}

// Checks from another thread that the manager's lock is free while the
// dialog runs: that thread's call gets through at once, or not for as long as
// the dialog waits.
VYN_PLUGIN_EXPORT int32_t PluginShowDialog(void) {
  Note("PluginShowDialog");
  auto done = std::make_shared<std::promise<void>>();
  std::future<void> finished = done->get_future();
  std::thread other([done] {
    std::string name;
    GetVYNPluginManager().GetPlugin(0, name);
    done->set_value();
  });
  if (finished.wait_for(std::chrono::seconds(20)) == std::future_status::ready) {
    other.join();
    return VYN_STATUS_SUCCESS;
  }
  // Had the lock been held, the thread gets through once this dialog has
  // returned; it shares nothing with this stack.
  other.detach();
  return VYN_STATUS_TIMEOUT;
}

VYN_PLUGIN_EXPORT int32_t PluginProcessEvent(int32_t event, void* data) {
  using namespace vyn::test;
  CVYNPluginManager& manager = GetVYNPluginManager();
  Note("event " + std::to_string(event));
  switch (event) {
    case kProbeAttachJournal:
      g_journal = static_cast<ProbeJournal*>(data);
      return VYN_STATUS_SUCCESS;
    case kProbeWaitAtGate: {
      auto* gate = static_cast<std::atomic<int>*>(data);
      *gate = kGateEntered;
      for (int i = 0; i < 60000 && *gate != kGateOpen; ++i) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
      }
      Note("gate passed");
      return *gate == kGateOpen ? VYN_STATUS_SUCCESS : VYN_STATUS_TIMEOUT;
    }
    case kProbeUnloadSelf:
      return manager.UnloadPlugin(OwnRecord());
    case kProbeUnloadAll:
      return manager.UnloadAllPlugins();
    case kProbeLoad:
      return manager.LoadPlugin(static_cast<const char*>(data));
    case kProbeForward: {
      const auto* forward = static_cast<ProbeForward*>(data);
      return manager.CallPluginProcessEvent(forward->name, forward->event, nullptr, false);
    }
    case kProbeThrow:
      throw std::runtime_error("probe event");
    case kProbeThrowOnTerminate:
      g_throw_on_terminate = true;
      return VYN_STATUS_SUCCESS;
    case kProbeAnnounceTerminate:
      g_announce_terminate = true;
      return VYN_STATUS_SUCCESS;
    default:
      return VYN_STATUS_SUCCESS;
  }
}
