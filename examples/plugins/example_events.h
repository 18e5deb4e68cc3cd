// What the example plug-ins and their hosts (`vyn plugin`, the package
// test's host) agree on. Event numbers and data are such an agreement between
// an application and its plug-ins; the plug-in manager passes both through.
//
// - The data of every event is null or a zero-terminated text.
// - The event counter counts every event except VYN_EXAMPLE_EVENT_GET_COUNT,
//   which it answers with the number counted since its last PluginInitialize,
//   in place of a status.
#pragma once

#include <cstdint>

constexpr int32_t VYN_EXAMPLE_EVENT_GET_COUNT = 1000;
