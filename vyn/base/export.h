// The one export macro of the library. The library is built with hidden
// visibility, so only what carries VYN_EXPORT is part of its interface.
#pragma once

// Marks a class or function as part of the library's interface.
#define VYN_EXPORT __attribute__((visibility("default")))
