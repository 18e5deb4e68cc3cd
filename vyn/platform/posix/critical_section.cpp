#include "vyn/base/critical_section.h"

void InitializeCriticalSection(CRITICAL_SECTION* /*section*/) {}

void EnterCriticalSection(CRITICAL_SECTION* section) { section->mutex.lock(); }

int TryEnterCriticalSection(CRITICAL_SECTION* section) { return section->mutex.try_lock() ? 1 : 0; }

void LeaveCriticalSection(CRITICAL_SECTION* section) { section->mutex.unlock(); }

void DeleteCriticalSection(CRITICAL_SECTION* /*section*/) {}
