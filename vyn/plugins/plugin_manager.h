// CVYNPluginManager: loads plug-in libraries and calls their entry points.
#pragma once

#include "vyn/base/export.h"

class VYN_EXPORT CVYNPluginManager {
 public:
  CVYNPluginManager();
  virtual ~CVYNPluginManager();
  CVYNPluginManager(const CVYNPluginManager&) = delete;
  CVYNPluginManager& operator=(const CVYNPluginManager&) = delete;
};

VYN_EXPORT CVYNPluginManager& GetVYNPluginManager();
