// Broken on purpose: PluginInitialize is missing, so this library is no
// plug-in. Loading it answers VYN_STATUS_UNSPECIFIC_ERROR and lists nothing.
#include <vyn/plugins/plugin_entry_points.h>

VYN_PLUGIN_EXPORT void PluginTerminate(void) {}
