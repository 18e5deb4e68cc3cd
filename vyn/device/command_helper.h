// CVYNCommandHelper: composes one request from a dialog's controls.
#pragma once

#include "vyn/core/export.h"
#include "vyn/device/command_set.h"

class VYN_EXPORT CVYNCommandHelper : public CVYNCommandSet {
 public:
  CVYNCommandHelper();
  ~CVYNCommandHelper();
  CVYNCommandHelper(const CVYNCommandHelper&) = delete;
  CVYNCommandHelper& operator=(const CVYNCommandHelper&) = delete;
};

VYN_EXPORT CVYNCommandHelper& GetVYNCommandHelper();
