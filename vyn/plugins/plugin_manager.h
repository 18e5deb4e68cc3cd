// CVYNPluginManager: loads plug-in libraries, keeps them in load order, and
// forwards dialog and event calls to them. CVYNPlugin: the record of one
// loaded plug-in. The entry points a plug-in exports are described in
// vyn/plugins/plugin_entry_points.h.
//
// Names: a plug-in is known by the file name exactly as given to LoadPlugin,
// compared byte for byte. "a.so", "./a.so" and "A.so" are three names; two
// spellings of one file are two plug-ins that share one library (and its
// static data).
//
// Libraries stay loaded. Unloading a plug-in calls its PluginTerminate and
// destroys its record, but its library stays in the process, so a later
// LoadPlugin of the same file finds the library as it was and calls
// PluginInitialize once more. Only a library that fails to become a plug-in
// (an entry point missing) is released at once. Nothing the loader reports is
// logged; the statuses say what went wrong.
//
// Exceptions: nothing a plug-in throws leaves the manager. The call answers
// VYN_STATUS_EXCEPTION_CAUGHT, and an exception entry goes to the log. A
// plug-in whose PluginInitialize threw stays listed, like one that returned
// a failure; one whose PluginTerminate threw is unloaded all the same.
// Thread cancellation is let through (it is not an exception but the end of
// the thread); the lock is given back on its way out.
//
// Process exit: a plug-in's static objects are destroyed before this
// library's, because the plug-in was loaded later. So that a plug-in still
// loaded when the process ends finds its own objects alive in
// PluginTerminate, the manager of the process (GetVYNPluginManager) unloads
// every plug-in from an exit handler that runs before them.
//
// Ownership: the manager owns the records. The out-pointer of LoadPlugin and
// GetPlugin(name) lend a record: it stays valid until the plug-in is unloaded,
// by any thread. Deleting a listed record unloads it first (it leaves the
// list and its PluginTerminate runs) and destroys it once. A record that the
// application made itself (to resolve entry points with LoadPlugin(record))
// stays the application's; deleting it while its entry points are set has
// the manager look for it in the list, where it is not.
//
// Thread-safety: every operation may be called from any thread. One
// re-entrant lock serialises them, and it is held on purpose while
// PluginInitialize, PluginTerminate and PluginProcessEvent run: a plug-in is
// never entered by two of them at once, and nobody unloads it in the middle
// of an event. PluginShowDialog runs without the lock, because a dialog may
// stay open for minutes: meanwhile other threads load, unload and send
// events, and may even unload the plug-in whose dialog is open (its
// PluginTerminate then runs while the dialog is still open; a plug-in with a
// dialog must allow for that). Terminate logs with the lock held, and so does
// the report of a caught exception; the log never calls back.
//
// Calls back into the manager from a plug-in's entry point, on the same
// thread, all work, because the lock is re-entrant:
// - GetPlugin, CallPluginProcessEvent (to any plug-in, itself included) and
//   CallPluginShowDialog; a dialog opened from inside another entry point
//   runs with the lock still held by that outer call.
// - LoadPlugin, UnloadPlugin (of itself, too: its record is destroyed while
//   its entry point is still running, and the manager does not touch the
//   record once the entry point has returned), UnloadAllPlugins, Terminate.
// - An event to all plug-ins skips the plug-ins that an earlier handler of the
//   same event has unloaded and does not reach plug-ins loaded meanwhile.
//   UnloadAllPlugins also unloads plug-ins that a PluginTerminate loads while
//   it runs, so the list is empty when it returns.
// From another thread, a call waits until the running entry point has
// returned. An entry point that waits for another thread which calls the
// manager therefore waits for ever; it must not.
//
// Lock order: the manager's lock comes before every lock taken by the code of
// a plug-in, before the log's queue lock, and before the platform loader's
// own lock (LoadPlugin loads libraries with its lock held). A library that a
// thread loads by itself, outside the manager, runs its static constructors
// under the loader's lock; should they call the manager while another thread
// is in LoadPlugin, both threads would wait for ever. They must not.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "vyn/base/critical_section.h"
#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"
#include "vyn/core/log_event_type.h"

// A loaded library, as the platform's loader hands it out.
using HMODULE = void*;

// PluginInitialize, as the manager calls it.
using VYNPluginInitializeFunction = int32_t (*)();
// PluginTerminate, as the manager calls it.
using VYNPluginTerminateFunction = void (*)();
// PluginShowDialog, as the manager calls it.
using VYNPluginShowDialogFunction = int32_t (*)();
// PluginProcessEvent, as the manager calls it.
using VYNPluginProcessEventFunction = int32_t (*)(int32_t event, void* data);

// One plug-in. It counts as loaded while both pfnInitialize and pfnTerminate
// are set.
class VYN_EXPORT CVYNPlugin {
 public:
  CVYNPlugin() = default;
  // Unloads a loaded record through the manager first (see above).
  virtual ~CVYNPlugin();
  CVYNPlugin(const CVYNPlugin&) = delete;
  CVYNPlugin& operator=(const CVYNPlugin&) = delete;

  HMODULE hModule = nullptr;  // the library, set by the load; never released (see above)
  VYNPluginInitializeFunction pfnInitialize = nullptr;      // required; null when not loaded
  VYNPluginTerminateFunction pfnTerminate = nullptr;        // required; null when not loaded
  VYNPluginShowDialogFunction pfnShowDialog = nullptr;      // optional
  VYNPluginProcessEventFunction pfnProcessEvent = nullptr;  // optional
  // The file name exactly as given to LoadPlugin.
  std::string strName;
};

class VYN_EXPORT CVYNPluginManager {
 public:
  CVYNPluginManager() = default;
  // Terminate: every plug-in still loaded gets its PluginTerminate.
  virtual ~CVYNPluginManager();
  CVYNPluginManager(const CVYNPluginManager&) = delete;
  CVYNPluginManager& operator=(const CVYNPluginManager&) = delete;

  // Logs that the manager has started; loads nothing. VYN_STATUS_SUCCESS.
  int32_t Initialize();
  // UnloadAllPlugins, then logs that the manager has ended.
  // VYN_STATUS_SUCCESS. Initialize and Terminate may be called in any order,
  // any number of times.
  int32_t Terminate();

  // Loads the library `name` (a path when it contains '/', else searched the
  // loader's usual way), lists it as a plug-in, stores its record through
  // `plugin` (when given; set to null first) and returns what its
  // PluginInitialize returns. VYN_STATUS_NOT_UNIQUE when a plug-in of that
  // name is listed; VYN_STATUS_UNSPECIFIC_ERROR when the library cannot be
  // loaded or lacks a required entry point (the library is released again)
  // or the record cannot be made.
  int32_t LoadPlugin(std::string name, CVYNPlugin** plugin = nullptr);
  // Looks up the four entry points of `plugin->hModule` and stores them; the
  // optional ones may stay null. VYN_STATUS_INVALID_PARAMETER for a null
  // record; VYN_STATUS_UNSPECIFIC_ERROR, with the record unchanged, when a
  // required entry point is missing (or the handle is null). Neither lists
  // the record nor calls the plug-in.
  int32_t LoadPlugin(CVYNPlugin* plugin);
  // Takes the plug-in off the list (the others keep their order), calls its
  // PluginTerminate and destroys the record. VYN_STATUS_NOT_FOUND for a
  // record that is not listed (compared by address), for example one
  // unloaded already.
  int32_t UnloadPlugin(CVYNPlugin* plugin);
  // Unloads every plug-in in load order. VYN_STATUS_SUCCESS.
  int32_t UnloadAllPlugins();

  // The name of the plug-in at `index` in load order;
  // VYN_STATUS_INVALID_PARAMETER for an index outside the list.
  int32_t GetPlugin(int32_t index, std::string& name);
  // The first plug-in in load order with that name, or null.
  CVYNPlugin* GetPlugin(std::string name);

  // Calls the plug-in's PluginShowDialog, without the lock, and returns its
  // result. VYN_STATUS_NOT_FOUND for an unknown name, VYN_STATUS_NOT_IMPLEMENTED
  // for a plug-in without a dialog; with `query_only`, VYN_STATUS_SUCCESS
  // instead of the call.
  int32_t CallPluginShowDialog(std::string name, bool query_only);
  // Calls the plug-in's PluginProcessEvent(event, data) and returns its
  // result; the statuses as for CallPluginShowDialog.
  int32_t CallPluginProcessEvent(std::string name, int32_t event, void* data, bool query_only);
  // Calls PluginProcessEvent(event, data) of every plug-in that has one, in
  // load order; their results are ignored. VYN_STATUS_SUCCESS.
  int32_t CallPluginProcessEvent(int32_t event, void* data);

 private:
  friend class CVYNPlugin;

  // A listed plug-in with the number of its load. Numbers grow in load order
  // and are never reused, so an event to all can find its place in the list
  // again after a handler has changed the list.
  struct Listed {
    CVYNPlugin* plugin;
    uint64_t load_number;
  };

  static void UnloadPluginsAtExit();
  // The exit handler, once for each library the process's manager loads.
  void WatchForExit(HMODULE library) VYN_REQUIRES(lock_);
  int32_t ResolveEntryPoints(CVYNPlugin* plugin) VYN_REQUIRES(lock_);
  void UnloadAllLocked() VYN_REQUIRES(lock_);
  // Removes a listed record from the list, calls its PluginTerminate and
  // clears its two required entry points. False when it is not listed.
  bool TakeOffList(CVYNPlugin* plugin, const char* operation, int32_t* status) VYN_REQUIRES(lock_);
  // TakeOffList for a record that is being deleted.
  void ForgetDeletedPlugin(CVYNPlugin* plugin);
  std::vector<Listed>::iterator FindListed(const std::string& name) VYN_REQUIRES(lock_);
  // Runs an entry point, turning whatever it throws into
  // VYN_STATUS_EXCEPTION_CAUGHT and a log entry that names the plug-in
  // (name_of() is asked only then).
  template <typename NameOf, typename Call>
  int32_t CallEntryPoint(const char* operation, const char* entry_point, NameOf name_of, Call call);
  int32_t AddOutput(const std::string& text, _VYNSystemLogExEventType type);

  CRITICAL_SECTION lock_;
  std::vector<Listed> plugins_ VYN_GUARDED_BY(lock_);  // in load order; records owned
  uint64_t load_count_ VYN_GUARDED_BY(lock_) = 0;
  // Libraries for which an exit handler is registered.
  std::vector<HMODULE> watched_libraries_ VYN_GUARDED_BY(lock_);
};

// The process's one CVYNPluginManager, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNPluginManager& GetVYNPluginManager();
