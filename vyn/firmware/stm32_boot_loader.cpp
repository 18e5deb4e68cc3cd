#include "vyn/firmware/stm32_boot_loader.h"

CVYNSTM32BootLoader::CVYNSTM32BootLoader() = default;

CVYNSTM32BootLoader::~CVYNSTM32BootLoader() = default;
