// CVYNSTM32BootLoader: firmware update through the STM32 system bootloader.
#pragma once

#include "vyn/base/export.h"

class VYN_EXPORT CVYNSTM32BootLoader {
 public:
  CVYNSTM32BootLoader();
  virtual ~CVYNSTM32BootLoader();
  CVYNSTM32BootLoader(const CVYNSTM32BootLoader&) = delete;
  CVYNSTM32BootLoader& operator=(const CVYNSTM32BootLoader&) = delete;
};

VYN_EXPORT CVYNSTM32BootLoader& GetVYNSTM32BootLoader();
