// Broken on purpose: the library needs a function that nothing in the
// process provides. The loader refuses it as a whole (every reference is
// resolved at load), so loading answers VYN_STATUS_UNSPECIFIC_ERROR instead
// of the process failing at the first call.
#include <vyn/core/status.h>
#include <vyn/plugins/plugin_entry_points.h>

extern "C" int32_t VynExampleFunctionThatNobodyDefines(void);

VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) { return VynExampleFunctionThatNobodyDefines(); }

VYN_PLUGIN_EXPORT void PluginTerminate(void) {}
