// Broken on purpose: PluginInitialize reports a failure. The load answers
// with that status (VYN_STATUS_OPERATION_BROKEN), yet the plug-in is listed
// and is unloaded later like any other, PluginTerminate included.
#include <vyn/core/status.h>
#include <vyn/plugins/plugin_entry_points.h>

VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) { return VYN_STATUS_OPERATION_BROKEN; }

VYN_PLUGIN_EXPORT void PluginTerminate(void) {}
