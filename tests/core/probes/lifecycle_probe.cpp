// Loads the shared library, reports each singleton's construction (+name) and
// destruction (-name) as the library announces them, and unloads it again.
//
// The probe is a C++ host: its C++ runtime is loaded before the library, as in
// any C++ application. The library defines the runtime's pure-virtual-call
// hook; a host that loads the runtime only together with the library binds the
// runtime to that hook, and the library then stays loaded until the process
// ends (its singletons go then, in the same order).
#include <dirent.h>
#include <dlfcn.h>

#include <cstdio>
#include <string>

extern "C" __attribute__((visibility("default"))) void vyn_test_lifecycle_probe(const char* name,
                                                                                int constructed) {
  std::printf("%c%s\n", constructed != 0 ? '+' : '-', name);
}

namespace {

int CountThreads() {
  int count = 0;
  if (DIR* tasks = opendir("/proc/self/task")) {
    while (const dirent* entry = readdir(tasks)) {
      if (entry->d_name[0] != '.') ++count;
    }
    closedir(tasks);
  }
  return count;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2) return 2;
  const int threads_before = CountThreads();
  void* library = dlopen(argv[1], RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr) {
    std::printf("dlopen failed: %s\n", dlerror());
    return 3;
  }
  const std::string loaded =
      "loaded; new threads: " + std::to_string(CountThreads() - threads_before);
  std::printf("%s\n", loaded.c_str());
  std::fflush(stdout);
  if (dlclose(library) != 0) return 4;
  std::printf("unloaded\n");
  return 0;
}
