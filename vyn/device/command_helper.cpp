#include "vyn/device/command_helper.h"

CVYNCommandHelper::CVYNCommandHelper() = default;

CVYNCommandHelper::~CVYNCommandHelper() = default;
