// Broken on purpose: PluginTerminate is missing, so this library is no
// plug-in. Loading it answers VYN_STATUS_UNSPECIFIC_ERROR, lists nothing and
// releases the library again; PluginInitialize is never called.
#include <vyn/core/status.h>
#include <vyn/plugins/plugin_entry_points.h>

VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) { return VYN_STATUS_SUCCESS; }
