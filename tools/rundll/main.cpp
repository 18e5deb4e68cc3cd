// vyn-rundll: hosts an entry point of a shared library in a process of its
// own, the way the library shows a message box after a crash while the
// crashed process ends.
//
//   vyn-rundll LIBRARY,ENTRY [ARGUMENTS...]
//
// Loads LIBRARY, calls ENTRY(window, library handle, command line, show)
// with no window, the rest of the command line, and 1, and exits with 0
// when the entry point was called. The entry point reads its own arguments
// from the process's command line.
#include <dlfcn.h>

#include <cstdio>
#include <string>

namespace {

using EntryPoint = void (*)(void* window, void* instance, const char* command_line, int show);

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: %s LIBRARY,ENTRY [ARGUMENTS...]\n", argv[0]);
    return 2;
  }
  const std::string target = argv[1];
  const size_t comma = target.rfind(',');
  if (comma == std::string::npos || comma == 0 || comma + 1 == target.size()) {
    std::fprintf(stderr, "%s: expected LIBRARY,ENTRY, got \"%s\"\n", argv[0], argv[1]);
    return 2;
  }
  const std::string library = target.substr(0, comma);
  const std::string entry_name = target.substr(comma + 1);
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle == nullptr) {
    std::fprintf(stderr, "%s: %s\n", argv[0], dlerror());  // NOLINT(concurrency-mt-unsafe)
    return 1;
  }
  auto entry = reinterpret_cast<EntryPoint>(dlsym(handle, entry_name.c_str()));
  if (entry == nullptr) {
    std::fprintf(stderr, "%s: no entry point %s in %s\n", argv[0], entry_name.c_str(),
                 library.c_str());
    dlclose(handle);
    return 1;
  }
  std::string command_line;
  for (int i = 2; i < argc; ++i) {
    if (i > 2) command_line += ' ';
    command_line += argv[i];
  }
  entry(nullptr, handle, command_line.c_str(), 1);
  dlclose(handle);
  return 0;
}
