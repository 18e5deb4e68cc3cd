#include "vyn/plugins/plugin_manager.h"

CVYNPluginManager::CVYNPluginManager() = default;

CVYNPluginManager::~CVYNPluginManager() = default;
