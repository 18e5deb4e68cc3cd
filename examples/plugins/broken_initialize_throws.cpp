// Broken on purpose: PluginInitialize throws. The exception stops in the
// plug-in manager: the load answers VYN_STATUS_EXCEPTION_CAUGHT, an exception
// entry goes to the log, and the plug-in is listed as if it had returned a
// failure.
#include <vyn/plugins/plugin_entry_points.h>

#include <stdexcept>

VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) {
  throw std::runtime_error("the example plug-in fails to initialise");
}

VYN_PLUGIN_EXPORT void PluginTerminate(void) {}
