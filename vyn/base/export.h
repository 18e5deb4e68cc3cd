// The one export macro of the library. The library is built with hidden
// visibility, so only what carries VYN_EXPORT is part of its interface.
#pragma once

#define VYN_EXPORT __attribute__((visibility("default")))
