// The re-entrant lock that every service guards its state with, under the
// name applications know. The functions are
// exported so that an application hands CVYNSynchronize a lock exactly as the
// services do.
//
// Ownership: the CRITICAL_SECTION object owns its mutex; InitializeCriticalSection
// and DeleteCriticalSection exist for source compatibility and do nothing,
// because construction and destruction of the object already create and
// destroy the mutex.
// Thread-safety: all functions may be called from any thread; a thread must
// leave the lock as often as it entered it.
#pragma once

#include <mutex>

#include "vyn/base/export.h"
#include "vyn/base/thread_annotations.h"

// The lock itself; usable from its construction to its destruction.
struct VYN_CAPABILITY("mutex") CRITICAL_SECTION {
  std::recursive_mutex mutex;  // the lock; use the functions below, not this
};

// Does nothing: the object's construction has made the lock ready.
VYN_EXPORT void InitializeCriticalSection(CRITICAL_SECTION* section);
// Takes the lock, waiting while another thread holds it; the holding thread
// may take it again.
VYN_EXPORT void EnterCriticalSection(CRITICAL_SECTION* section) VYN_ACQUIRE(section);
// Takes the lock without waiting; nonzero when it was taken.
VYN_EXPORT int TryEnterCriticalSection(CRITICAL_SECTION* section) VYN_TRY_ACQUIRE(1, section);
// Gives back one entry of the calling thread, which must hold the lock.
VYN_EXPORT void LeaveCriticalSection(CRITICAL_SECTION* section) VYN_RELEASE(section);
// Does nothing: the object's destruction removes the lock.
VYN_EXPORT void DeleteCriticalSection(CRITICAL_SECTION* section);
