#include "vyn/platform/dynamic_library.h"

#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/stat.h>

#include <utility>

namespace vyn::platform {

DynamicLibrary::~DynamicLibrary() { Close(); }

DynamicLibrary::DynamicLibrary(DynamicLibrary&& other) noexcept
    : handle_(std::exchange(other.handle_, nullptr)), last_error_(std::move(other.last_error_)) {}

DynamicLibrary& DynamicLibrary::operator=(DynamicLibrary&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = std::exchange(other.handle_, nullptr);
    last_error_ = std::move(other.last_error_);
  }
  return *this;
}

bool DynamicLibrary::Open(const std::string& name) {
  Close();
  if (name.empty() || name.find('\0') != std::string::npos) {
    last_error_ = "not a library name";
    return false;
  }
  // The loader opens and reads what it is given: a pipe would keep it waiting
  // for a writer for ever, a device for as long as the device likes.
  struct stat file {};
  if (name.find('/') != std::string::npos && stat(name.c_str(), &file) == 0 &&
      !S_ISREG(file.st_mode)) {
    last_error_ = "not a regular file";
    return false;
  }
  handle_ = dlopen(name.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    // dlerror keeps its text per thread (until this thread's next call).
    const char* error = dlerror();  // NOLINT(concurrency-mt-unsafe)
    last_error_ = error != nullptr ? error : "cannot be loaded";
    return false;
  }
  last_error_.clear();
  return true;
}

LibraryHandle DynamicLibrary::Release() { return std::exchange(handle_, nullptr); }

void DynamicLibrary::Close() {
  if (handle_ != nullptr) dlclose(std::exchange(handle_, nullptr));
}

LibraryFunction FindLibraryFunction(LibraryHandle library, const char* name) {
  // A null handle would make dlsym search the whole process.
  if (library == nullptr || name == nullptr) return nullptr;
  void* address = dlsym(library, name);
  if (address == nullptr) return nullptr;

  // dlsym also searches the libraries that this one depends on; the symbol
  // counts only when it belongs to the library itself.
  link_map* own = nullptr;
  if (dlinfo(library, RTLD_DI_LINKMAP, &own) != 0) return nullptr;
  Dl_info info{};
  link_map* found_in = nullptr;
  if (dladdr1(address, &info, reinterpret_cast<void**>(&found_in), RTLD_DL_LINKMAP) == 0 ||
      found_in != own) {
    return nullptr;
  }
  // A variable of that name is no entry point; calling it would crash.
  void* entry = nullptr;
  if (dladdr1(address, &info, &entry, RTLD_DL_SYMENT) != 0 && entry != nullptr) {
    // The type sits in the same bits for 32- and 64-bit symbols.
    const unsigned type = ELF64_ST_TYPE(static_cast<const ElfW(Sym)*>(entry)->st_info);
    if (type != STT_FUNC && type != STT_GNU_IFUNC) return nullptr;
  }
  return reinterpret_cast<LibraryFunction>(address);
}

}  // namespace vyn::platform
