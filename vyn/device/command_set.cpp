#include "vyn/device/command_set.h"

CVYNCommandSet::CVYNCommandSet() = default;

CVYNCommandSet::~CVYNCommandSet() = default;
