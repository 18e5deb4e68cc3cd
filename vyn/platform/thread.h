// Native threads: start, join, detach, ids and names.
// Thread-safety: all functions may be called from any thread; a handle must be
// joined or detached exactly once.
#pragma once

#include <cstdint>
#include <string>

#include "vyn/base/platform_types.h"

namespace vyn::platform {

// An opaque native thread handle.
using ThreadHandle = uintptr_t;

// Starts entry(argument) on a new thread with the given stack size (0 = the
// platform default; small sizes are raised to the platform minimum).
bool StartThread(void (*entry)(void*), void* argument, uint32_t stack_size, ThreadHandle* handle);
void JoinThread(ThreadHandle handle);
void DetachThread(ThreadHandle handle);
bool IsCurrentThread(ThreadHandle handle);

// The kernel's id of the calling thread.
uint32_t GetCurrentThreadId();

// Names a thread for debuggers and tools; the kernel keeps 15 characters.
void SetThreadName(ThreadHandle handle, const std::string& name);
void SetCurrentThreadName(const std::string& name);

}  // namespace vyn::platform
