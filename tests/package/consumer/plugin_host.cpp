// A plug-in host built against the installed library: loads the plug-in
// named on the command line (the example event counter), sends it events and
// unloads it, and reports what does not hold.
#include <vyn/vyn.h>

#include <cstdio>
#include <string>

int main(int argc, char** argv) {
  if (argc != 2) {
    std::printf("usage: vyn_plugin_host EVENT_COUNTER_PLUGIN\n");
    return 2;
  }
  const std::string path = argv[1];
  int failures = 0;
  const auto check = [&failures](bool ok, const char* what) {
    if (!ok) {
      std::printf("FAILED: %s\n", what);
      ++failures;
    }
  };
  CVYNPluginManager& manager = GetVYNPluginManager();
  check(manager.Initialize() == VYN_STATUS_SUCCESS, "initialize");
  CVYNPlugin* plugin = nullptr;
  check(manager.LoadPlugin(path, &plugin) == VYN_STATUS_SUCCESS && plugin != nullptr, "load");
  check(manager.LoadPlugin(path) == VYN_STATUS_NOT_UNIQUE, "second load");
  check(manager.LoadPlugin(path + ".missing") == VYN_STATUS_UNSPECIFIC_ERROR, "missing file");
  check(manager.CallPluginShowDialog(path, true) == VYN_STATUS_NOT_IMPLEMENTED, "no dialog");
  char text[] = "hello";
  check(manager.CallPluginProcessEvent(1, text) == VYN_STATUS_SUCCESS, "event to all");
  check(manager.CallPluginProcessEvent(path, 2, nullptr, false) == VYN_STATUS_SUCCESS, "event");
  // The example counter answers event 1000 with the number of events so far.
  check(manager.CallPluginProcessEvent(path, 1000, nullptr, false) == 2, "count");
  std::string name;
  check(manager.GetPlugin(0, name) == VYN_STATUS_SUCCESS && name == path, "name");
  check(manager.UnloadPlugin(plugin) == VYN_STATUS_SUCCESS, "unload");
  check(manager.GetPlugin(path) == nullptr, "unloaded");
  check(manager.Terminate() == VYN_STATUS_SUCCESS, "terminate");
  std::printf("plugin host: %s\n", failures == 0 ? "ok" : "failed");
  return failures == 0 ? 0 : 1;
}
