#include "vyn/device/command_dump.h"

CVYNCommandDump::CVYNCommandDump() = default;

CVYNCommandDump::~CVYNCommandDump() = default;
