// CVYNCommandSet: the device's command set: request builders and reply parsers.
#pragma once

#include "vyn/core/export.h"

class VYN_EXPORT CVYNCommandSet {
 public:
  CVYNCommandSet();
  ~CVYNCommandSet();
  CVYNCommandSet(const CVYNCommandSet&) = delete;
  CVYNCommandSet& operator=(const CVYNCommandSet&) = delete;
};

VYN_EXPORT CVYNCommandSet& GetVYNCommandSet();
