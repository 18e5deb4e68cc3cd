#include "vyn/plugins/plugin_manager.h"

#include <cxxabi.h>

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <memory>
#include <new>
#include <type_traits>

#include "vyn/core/internal/log_output.h"
#include "vyn/core/internal/scoped_lock.h"
#include "vyn/core/language.h"
#include "vyn/core/status.h"
#include "vyn/platform/dynamic_library.h"
#include "vyn/plugins/plugin_entry_points.h"

// What plug-in authors declare and what the manager calls must not drift
// apart.
static_assert(std::is_same_v<decltype(&PluginInitialize), VYNPluginInitializeFunction>);
static_assert(std::is_same_v<decltype(&PluginTerminate), VYNPluginTerminateFunction>);
static_assert(std::is_same_v<decltype(&PluginShowDialog), VYNPluginShowDialogFunction>);
static_assert(std::is_same_v<decltype(&PluginProcessEvent), VYNPluginProcessEventFunction>);
static_assert(std::is_same_v<HMODULE, vyn::platform::LibraryHandle>);

namespace {

// The plug-in's name for an exception report, for calls that know it.
auto NameIs(const std::string& name) {
  return [&name] { return name; };
}

template <typename Function>
Function FindEntryPoint(HMODULE library, const char* name) {
  return reinterpret_cast<Function>(vyn::platform::FindLibraryFunction(library, name));
}

}  // namespace

CVYNPlugin::~CVYNPlugin() {
  if (pfnInitialize == nullptr || pfnTerminate == nullptr) return;
  // A listed record deleted by the application: off the list and terminated,
  // but not destroyed a second time.
  GetVYNPluginManager().ForgetDeletedPlugin(this);
}

CVYNPluginManager::~CVYNPluginManager() { Terminate(); }

int32_t CVYNPluginManager::Initialize() {
  AddOutput(GetVYNLanguage().GetString(VYN_MODULE_PLUGIN_MANAGER, 1), VYN_EVENT_INFORMATION);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNPluginManager::Terminate() {
  vyn::ScopedLock guard(&lock_);
  UnloadAllLocked();
  AddOutput(GetVYNLanguage().GetString(VYN_MODULE_PLUGIN_MANAGER, 3), VYN_EVENT_INFORMATION);
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNPluginManager::LoadPlugin(std::string name, CVYNPlugin** plugin) {
  vyn::ScopedLock guard(&lock_);
  if (plugin != nullptr) *plugin = nullptr;
  if (FindListed(name) != plugins_.end()) return VYN_STATUS_NOT_UNIQUE;

  vyn::platform::DynamicLibrary library;
  if (!library.Open(name)) return VYN_STATUS_UNSPECIFIC_ERROR;
  // From here on every early return releases the library again.
  std::unique_ptr<CVYNPlugin> record(new (std::nothrow) CVYNPlugin);
  if (record == nullptr) return VYN_STATUS_UNSPECIFIC_ERROR;
  record->hModule = library.handle();
  const int32_t resolved = ResolveEntryPoints(record.get());
  if (resolved != VYN_STATUS_SUCCESS) return resolved;
  try {
    record->strName = name;
    plugins_.reserve(plugins_.size() + 1);
    WatchForExit(record->hModule);
  } catch (const std::bad_alloc&) {
    // Not listed: the record is no plug-in yet and must not be terminated.
    record->pfnInitialize = nullptr;
    record->pfnTerminate = nullptr;
    return VYN_STATUS_UNSPECIFIC_ERROR;
  }
  library.Release();
  CVYNPlugin* listed = record.release();
  plugins_.push_back(Listed{listed, ++load_count_});
  if (plugin != nullptr) *plugin = listed;

  const VYNPluginInitializeFunction initialize = listed->pfnInitialize;
  return CallEntryPoint("LoadPlugin", "PluginInitialize", NameIs(name),
                        [initialize] { return initialize(); });
}

int32_t CVYNPluginManager::LoadPlugin(CVYNPlugin* plugin) {
  vyn::ScopedLock guard(&lock_);
  return ResolveEntryPoints(plugin);
}

int32_t CVYNPluginManager::ResolveEntryPoints(CVYNPlugin* plugin) {
  if (plugin == nullptr) return VYN_STATUS_INVALID_PARAMETER;
  const auto initialize =
      FindEntryPoint<VYNPluginInitializeFunction>(plugin->hModule, "PluginInitialize");
  const auto terminate =
      FindEntryPoint<VYNPluginTerminateFunction>(plugin->hModule, "PluginTerminate");
  if (initialize == nullptr || terminate == nullptr) return VYN_STATUS_UNSPECIFIC_ERROR;
  plugin->pfnInitialize = initialize;
  plugin->pfnTerminate = terminate;
  plugin->pfnShowDialog =
      FindEntryPoint<VYNPluginShowDialogFunction>(plugin->hModule, "PluginShowDialog");
  plugin->pfnProcessEvent =
      FindEntryPoint<VYNPluginProcessEventFunction>(plugin->hModule, "PluginProcessEvent");
  return VYN_STATUS_SUCCESS;
}

int32_t CVYNPluginManager::UnloadPlugin(CVYNPlugin* plugin) {
  vyn::ScopedLock guard(&lock_);
  int32_t status = VYN_STATUS_SUCCESS;
  if (!TakeOffList(plugin, "UnloadPlugin", &status)) return VYN_STATUS_NOT_FOUND;
  delete plugin;
  return status;
}

int32_t CVYNPluginManager::UnloadAllPlugins() {
  vyn::ScopedLock guard(&lock_);
  UnloadAllLocked();
  return VYN_STATUS_SUCCESS;
}

void CVYNPluginManager::UnloadAllLocked() {
  // One at a time from the front: a PluginTerminate may change the list.
  while (!plugins_.empty()) {
    CVYNPlugin* plugin = plugins_.front().plugin;
    int32_t ignored = VYN_STATUS_SUCCESS;
    TakeOffList(plugin, "UnloadAllPlugins", &ignored);
    delete plugin;
  }
}

int32_t CVYNPluginManager::GetPlugin(int32_t index, std::string& name) {
  vyn::ScopedLock guard(&lock_);
  if (index < 0 || static_cast<size_t>(index) >= plugins_.size()) {
    return VYN_STATUS_INVALID_PARAMETER;
  }
  try {
    name = plugins_[static_cast<size_t>(index)].plugin->strName;
  } catch (const std::bad_alloc&) {
    return VYN_STATUS_NO_MEMORY;
  }
  return VYN_STATUS_SUCCESS;
}

CVYNPlugin* CVYNPluginManager::GetPlugin(std::string name) {
  vyn::ScopedLock guard(&lock_);
  const auto listed = FindListed(name);
  return listed == plugins_.end() ? nullptr : listed->plugin;
}

int32_t CVYNPluginManager::CallPluginShowDialog(std::string name, bool query_only) {
  VYNPluginShowDialogFunction dialog = nullptr;
  {
    vyn::ScopedLock guard(&lock_);
    const auto listed = FindListed(name);
    if (listed == plugins_.end()) return VYN_STATUS_NOT_FOUND;
    dialog = listed->plugin->pfnShowDialog;
    if (dialog == nullptr) return VYN_STATUS_NOT_IMPLEMENTED;
    if (query_only) return VYN_STATUS_SUCCESS;
  }
  // The lock is given back before the dialog runs. The record may be gone by
  // the time the dialog is called; the function is not, because its library
  // stays loaded.
  return CallEntryPoint("CallPluginShowDialog", "PluginShowDialog", NameIs(name),
                        [dialog] { return dialog(); });
}

int32_t CVYNPluginManager::CallPluginProcessEvent(std::string name, int32_t event, void* data,
                                                  bool query_only) {
  vyn::ScopedLock guard(&lock_);
  const auto listed = FindListed(name);
  if (listed == plugins_.end()) return VYN_STATUS_NOT_FOUND;
  const VYNPluginProcessEventFunction handler = listed->plugin->pfnProcessEvent;
  if (handler == nullptr) return VYN_STATUS_NOT_IMPLEMENTED;
  if (query_only) return VYN_STATUS_SUCCESS;
  return CallEntryPoint("CallPluginProcessEvent", "PluginProcessEvent", NameIs(name),
                        [handler, event, data] { return handler(event, data); });
}

int32_t CVYNPluginManager::CallPluginProcessEvent(int32_t event, void* data) {
  vyn::ScopedLock guard(&lock_);
  // A handler may load and unload plug-ins, itself included. The list is
  // therefore searched again before each call for the next plug-in by load
  // number; plug-ins loaded after the event began are left out.
  const uint64_t last = load_count_;
  uint64_t done = 0;
  for (;;) {
    const auto next = std::find_if(plugins_.begin(), plugins_.end(), [done](const Listed& entry) {
      return entry.load_number > done;
    });
    if (next == plugins_.end() || next->load_number > last) break;
    done = next->load_number;
    const VYNPluginProcessEventFunction handler = next->plugin->pfnProcessEvent;
    if (handler == nullptr) continue;
    // The handler may have destroyed its record by the time a report names it.
    // Called only inside CallEntryPoint below, with the lock still held; the
    // analysis does not follow a lock into a lambda.
    const uint64_t number = done;
    const auto name_of = [this, number]() VYN_NO_THREAD_SAFETY_ANALYSIS {
      const auto listed = std::find_if(plugins_.begin(), plugins_.end(), [number](const Listed& e) {
        return e.load_number == number;
      });
      return listed == plugins_.end() ? std::string("(unloaded meanwhile)")
                                      : listed->plugin->strName;
    };
    CallEntryPoint("CallPluginProcessEvent", "PluginProcessEvent", name_of,
                   [handler, event, data] { return handler(event, data); });
  }
  return VYN_STATUS_SUCCESS;
}

void CVYNPluginManager::UnloadPluginsAtExit() { GetVYNPluginManager().UnloadAllPlugins(); }

void CVYNPluginManager::WatchForExit(HMODULE library) {
  // Exit handlers run in the reverse order of their registration, among them
  // the destructors of a library's static objects, registered while it
  // loaded. A handler registered after that runs before them.
  if (this != &GetVYNPluginManager()) return;
  if (std::find(watched_libraries_.begin(), watched_libraries_.end(), library) !=
      watched_libraries_.end()) {
    return;
  }
  watched_libraries_.push_back(library);
  if (std::atexit(&CVYNPluginManager::UnloadPluginsAtExit) != 0) watched_libraries_.pop_back();
}

void CVYNPluginManager::ForgetDeletedPlugin(CVYNPlugin* plugin) {
  vyn::ScopedLock guard(&lock_);
  int32_t ignored = VYN_STATUS_SUCCESS;
  TakeOffList(plugin, "~CVYNPlugin", &ignored);
}

bool CVYNPluginManager::TakeOffList(CVYNPlugin* plugin, const char* operation, int32_t* status) {
  const auto listed = std::find_if(plugins_.begin(), plugins_.end(), [plugin](const Listed& entry) {
    return entry.plugin == plugin;
  });
  if (listed == plugins_.end()) return false;
  plugins_.erase(listed);
  const VYNPluginTerminateFunction terminate = plugin->pfnTerminate;
  *status = CallEntryPoint(operation, "PluginTerminate", NameIs(plugin->strName), [terminate] {
    terminate();
    return VYN_STATUS_SUCCESS;
  });
  plugin->pfnInitialize = nullptr;
  plugin->pfnTerminate = nullptr;
  return true;
}

std::vector<CVYNPluginManager::Listed>::iterator CVYNPluginManager::FindListed(
    const std::string& name) {
  return std::find_if(plugins_.begin(), plugins_.end(),
                      [&name](const Listed& entry) { return entry.plugin->strName == name; });
}

template <typename NameOf, typename Call>
int32_t CVYNPluginManager::CallEntryPoint(const char* operation, const char* entry_point,
                                          NameOf name_of, Call call) {
  const auto report = [&](const char* what) noexcept {
    try {
      AddOutput(std::string(operation) + "(); " + entry_point + " has thrown an exception; " +
                    name_of() + "; " + what,
                VYN_EVENT_EXCEPTION);
    } catch (...) {
      // Not even the report could be made; the status still tells.
    }
  };
  try {
    return call();
  } catch (abi::__forced_unwind&) {
    throw;  // the thread is being cancelled; it must go on unwinding
  } catch (const std::exception& error) {
    report(error.what());
  } catch (...) {
    report("unknown exception");
  }
  return VYN_STATUS_EXCEPTION_CAUGHT;
}

int32_t CVYNPluginManager::AddOutput(const std::string& text, _VYNSystemLogExEventType type) {
  return vyn::LogAddOutput(text, type, "", "CVYNPluginManager", "");
}
