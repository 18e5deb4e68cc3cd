#include "vyn/base/critical_section.h"

// These are the lock itself: the analysis takes their annotations on trust.
void InitializeCriticalSection(CRITICAL_SECTION* /*section*/) {}

void EnterCriticalSection(CRITICAL_SECTION* section) VYN_NO_THREAD_SAFETY_ANALYSIS {
  section->mutex.lock();
}

int TryEnterCriticalSection(CRITICAL_SECTION* section) VYN_NO_THREAD_SAFETY_ANALYSIS {
  return section->mutex.try_lock() ? 1 : 0;
}

void LeaveCriticalSection(CRITICAL_SECTION* section) VYN_NO_THREAD_SAFETY_ANALYSIS {
  section->mutex.unlock();
}

void DeleteCriticalSection(CRITICAL_SECTION* /*section*/) {}
