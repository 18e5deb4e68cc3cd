// The entry points of a plug-in library, for plug-in authors.
//
// A plug-in exports these as plain C functions under exactly these names.
// PluginInitialize and PluginTerminate are required; a library without both
// is not a plug-in. PluginShowDialog and PluginProcessEvent are optional.
// Include this header in the plug-in's source and define the entry points
// with VYN_PLUGIN_EXPORT: the compiler then checks each one against the type
// that CVYNPluginManager calls it with, and the definition is exported even
// when the plug-in hides its other symbols.
//
//   VYN_PLUGIN_EXPORT int32_t PluginInitialize(void) { ...; return VYN_STATUS_SUCCESS; }
//
// What the manager guarantees a plug-in (vyn/plugins/plugin_manager.h has
// the details): PluginInitialize, PluginTerminate and PluginProcessEvent are
// never entered by two threads at once; PluginShowDialog may run beside any
// of them, on another thread, as the application calls it. Once terminated,
// a plug-in's library stays loaded; a later load of the same file calls
// PluginInitialize again with the library's static data as it was left.
#pragma once

#include <cstdint>

// Marks an entry point: C linkage and visible outside the plug-in's library,
// so that the manager finds it by its plain name.
#define VYN_PLUGIN_EXPORT extern "C" __attribute__((visibility("default")))

// Called once by each load. Its result is the result of the load; the
// plug-in stays loaded whatever it returns.
VYN_PLUGIN_EXPORT int32_t PluginInitialize(void);
// Called once by each unload, also when the application forgot to unload and
// the process ends.
VYN_PLUGIN_EXPORT void PluginTerminate(void);
// Shows the plug-in's dialog and returns when it is closed.
VYN_PLUGIN_EXPORT int32_t PluginShowDialog(void);
// Handles one event. Event numbers and the form of `data` are agreed between
// the application and its plug-ins; the manager passes both through.
VYN_PLUGIN_EXPORT int32_t PluginProcessEvent(int32_t event, void* data);
