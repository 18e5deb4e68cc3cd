// An example plug-in that counts the events it is sent and, when it is
// unloaded, writes the count to the application's log.
#include <vyn/core/status.h>
#include <vyn/log/system_log.h>
#include <vyn/plugins/plugin_entry_points.h>

#include <atomic>
#include <cstdint>
#include <cstdio>
#include <string>

#include "example_events.h"

namespace {

// Only the manager's lock serialises the entry points; the counter is atomic
// all the same so that a host may read it from any thread through an event.
// It is trivially destructible, so it outlives every call at process exit.
std::atomic<int32_t> g_events{0};

}  // namespace

VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) {
  g_events = 0;
  return VYN_STATUS_SUCCESS;
}

VYN_PLUGIN_EXPORT void PluginTerminate(void) {
  char text[80];
  std::snprintf(text, sizeof text, "The event counter has counted %d events.",
                static_cast<int>(g_events.load()));
  // Refused (and lost) while the application's log is not running.
  GetVYNSystemLogEx().AddOutput(text, VYN_EVENT_INFORMATION, "", "EventCounter");
}

VYN_PLUGIN_EXPORT int32_t PluginProcessEvent(int32_t event, void* /*data*/) {
  if (event == VYN_EXAMPLE_EVENT_GET_COUNT) return g_events.load();
  // Saturates rather than wrapping into the negative statuses.
  int32_t seen = g_events.load();
  while (seen < INT32_MAX && !g_events.compare_exchange_weak(seen, seen + 1)) {
  }
  return VYN_STATUS_SUCCESS;
}
