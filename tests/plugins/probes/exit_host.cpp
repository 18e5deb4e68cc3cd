// exit_host PLUGIN: loads one probe plug-in and ends the process without
// unloading it, as an application that forgot to would.
#include <cstdio>

#include "tests/plugins/probes/probe_protocol.h"
#include "vyn/core/status.h"
#include "vyn/plugins/plugin_manager.h"

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  CVYNPluginManager& manager = GetVYNPluginManager();
  if (manager.LoadPlugin(argv[1]) != VYN_STATUS_SUCCESS) return 1;
  manager.CallPluginProcessEvent(vyn::test::kProbeAnnounceTerminate, nullptr);
  std::printf("leaving main\n");
  std::fflush(stdout);
  return 0;
}
