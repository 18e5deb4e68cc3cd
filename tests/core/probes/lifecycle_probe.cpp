// Loads the shared library, reports each singleton's construction (+name) and
// destruction (-name) as the library announces them, and unloads it again.
#include <dirent.h>
#include <dlfcn.h>

#include <cstdio>

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
  std::printf("loaded; new threads: %d\n", CountThreads() - threads_before);
  std::fflush(stdout);
  if (dlclose(library) != 0) return 4;
  std::printf("unloaded\n");
  return 0;
}
