// CVYNMain: two strings of application information that the library keeps
// for the application and never interprets.
//
// Thread-safety: no lock; set the strings during start-up, before other
// threads read them.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/export.h"

class VYN_EXPORT CVYNMain {
 public:
  CVYNMain() = default;
  CVYNMain(const CVYNMain&) = delete;
  CVYNMain& operator=(const CVYNMain&) = delete;

  // Stores both strings, replacing the previous ones; 0.
  int32_t SetApplicationInformation(std::string first, std::string second);
  // Copies the stored strings (empty before the first set); 0.
  int32_t GetApplicationInformation(std::string& first, std::string& second);
  // Start and stop nothing: each service is started through its own
  // operation. Kept for applications written against them.
  int32_t InitializeModules();
  // Stops nothing, as InitializeModules starts nothing; 0.
  int32_t TerminateModules();

 private:
  std::string first_;
  std::string second_;
};

// The process's one CVYNMain, owned by the library: it is created when the
// library is loaded and destroyed when it is unloaded, so the reference
// stays valid while the library is loaded. Any thread may call this.
VYN_EXPORT CVYNMain& GetVYNMain();
