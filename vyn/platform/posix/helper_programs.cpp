#include "vyn/platform/helper_programs.h"

#include <dlfcn.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>
#include <memory>

#ifndef VYN_HELPER_RELATIVE_DIR
#define VYN_HELPER_RELATIVE_DIR "../libexec/vyn"
#endif
#ifndef VYN_HELPER_INSTALL_DIR
#define VYN_HELPER_INSTALL_DIR "/usr/local/libexec/vyn"
#endif

namespace vyn::platform {
namespace {

std::string FolderOf(const std::string& path) {
  const size_t slash = path.rfind('/');
  return slash == std::string::npos ? std::string(".") : path.substr(0, slash);
}

bool IsExecutableFile(const std::string& path) { return access(path.c_str(), X_OK) == 0; }

// The canonical form, so that a helper path stays valid when the program
// changes its current directory later.
std::string Canonical(const std::string& path) {
  std::unique_ptr<char, decltype(&free)> resolved(realpath(path.c_str(), nullptr), &free);
  return resolved ? std::string(resolved.get()) : path;
}

}  // namespace

std::string GetLibraryPath() {
  Dl_info info{};
  if (dladdr(reinterpret_cast<void*>(&GetLibraryPath), &info) == 0 || info.dli_fname == nullptr) {
    return {};
  }
  return Canonical(info.dli_fname);
}

std::string FindHelperProgram(const std::string& name) {
  std::string folders[4];
  size_t count = 0;
  // Read while the handlers are installed, before anything could crash;
  // nothing in the library changes the environment.
  const char* configured = std::getenv("VYN_LIBEXEC_DIR");  // NOLINT(concurrency-mt-unsafe)
  if (configured != nullptr && configured[0] != '\0') folders[count++] = configured;
  const std::string library = GetLibraryPath();
  if (!library.empty()) {
    folders[count++] = FolderOf(library);
    folders[count++] = FolderOf(library) + "/" + VYN_HELPER_RELATIVE_DIR;
  }
  folders[count++] = VYN_HELPER_INSTALL_DIR;
  for (size_t i = 0; i < count; ++i) {
    const std::string candidate = folders[i] + "/" + name;
    if (IsExecutableFile(candidate)) return Canonical(candidate);
  }
  return {};
}

void PinLibrary() {
  const std::string library = GetLibraryPath();
  if (library.empty()) return;
  // RTLD_NOLOAD only finds what is loaded already (a statically linked
  // program is not found, which is right: it is never unloaded).
  void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_NOLOAD | RTLD_NODELETE);
  if (handle != nullptr) dlclose(handle);
}

std::string GetProgramFileName() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path - 1);
  if (length <= 0) return {};
  path[length] = '\0';
  const char* slash = std::strrchr(path, '/');
  return slash == nullptr ? std::string(path) : std::string(slash + 1);
}

}  // namespace vyn::platform
