// Dynamic libraries loaded at run time (plug-ins) and the functions they
// export.
//
// A DynamicLibrary holds one reference to a loaded library and gives it back
// when it goes away, unless the reference has been handed over with Release
// (the library then stays loaded for as long as the process wants it).
// Libraries are loaded with every reference resolved at once, so a library
// that needs a symbol nobody provides fails to load instead of failing at the
// first call; their symbols stay local to them.
//
// Ownership: the object owns at most one reference; movable, not copyable.
// Thread-safety: one object belongs to one thread at a time; the functions
// below may be called from any thread.
#pragma once

#include <string>

namespace vyn::platform {

// The handle of a loaded library, as the loader gives it out.
using LibraryHandle = void*;
// The address of an exported function; call it only after converting it to
// the function's own type.
using LibraryFunction = void (*)();

class DynamicLibrary {
 public:
  DynamicLibrary() = default;
  ~DynamicLibrary();
  DynamicLibrary(DynamicLibrary&& other) noexcept;
  DynamicLibrary& operator=(DynamicLibrary&& other) noexcept;
  DynamicLibrary(const DynamicLibrary&) = delete;
  DynamicLibrary& operator=(const DynamicLibrary&) = delete;

  // Loads `name`: a path when it contains '/', else a file searched the
  // loader's usual way. A library loaded already is found again (one more
  // reference). An empty name, or one with a zero byte inside, fails: the
  // loader would take it for the program itself. So does a path to anything
  // but a regular file (a pipe would never end the load). Gives back a
  // reference this object still holds first.
  [[nodiscard]] bool Open(const std::string& name);
  LibraryHandle handle() const { return handle_; }
  // Hands the reference to the caller; the library stays loaded.
  LibraryHandle Release();
  // Gives the reference back; the library goes when nobody else holds one.
  void Close();

  // Why the last Open failed, in the loader's words.
  const std::string& GetLastErrorText() const { return last_error_; }

 private:
  LibraryHandle handle_ = nullptr;
  std::string last_error_;
};

// The function `name` that the library `library` exports itself, or null. A
// symbol that the loader would find only in one of the library's own
// dependencies does not count: a plug-in that lacks an entry point must not
// borrow one from a library it links against. A null handle finds nothing.
LibraryFunction FindLibraryFunction(LibraryHandle library, const char* name);

}  // namespace vyn::platform
