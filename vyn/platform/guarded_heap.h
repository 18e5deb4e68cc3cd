// Heaps that can be validated, and the process-wide list of them that the
// cyclic heap check walks.
//
// The C library's allocator offers no way to validate its heap from outside;
// it checks its own chunks when they are allocated and freed, and aborts the
// process (SIGABRT, which the crash handlers turn into a dump) when one is
// damaged. What can be validated at any moment are heaps of the library's
// own: every block carries a guard word before and after its data and sits
// in a doubly linked list, so an overrun, an underrun, or a write into
// freed list links shows up when the heap is validated. The library's
// process heap (ProcessHeap) is one such heap; an application may create
// more: each registers itself in the process-wide list for its lifetime.
//
// With termination on corruption switched on, a heap that finds a damaged
// block while freeing it ends the process through the crash path instead of
// going on.
//
// Ownership: a heap owns its blocks; blocks still allocated when the heap
// goes away are released with it.
// Thread-safety: every operation may be called from any thread. Lock order:
// the list's lock before a heap's own lock.
#pragma once

#include <cstddef>
#include <cstdint>

#include "vyn/base/mutex.h"
#include "vyn/base/thread_annotations.h"

namespace vyn::platform {

class GuardedHeap {
 public:
  GuardedHeap();
  ~GuardedHeap();
  GuardedHeap(const GuardedHeap&) = delete;
  GuardedHeap& operator=(const GuardedHeap&) = delete;

  // A block of `size` bytes, or null when memory is short.
  void* Allocate(size_t size);
  // Releases a block of this heap. A damaged block is left in place and
  // false returned (or the process ended, with termination on corruption).
  bool Free(void* block);
  // True when every block's guard words and links are intact.
  bool Validate();

  // The number that identifies the heap in the process-wide list.
  uint64_t id() const { return id_; }

  // Overwrites the guard word behind `block`, as a write one word past its
  // end would. For provoking a corruption on purpose; `block` must be a
  // block of this heap.
  void DamageBlockEnd(void* block);

 private:
  struct BlockHeader;
  bool IsIntactLocked(const BlockHeader* header) const VYN_REQUIRES(mutex_);

  Mutex mutex_;
  BlockHeader* first_ VYN_GUARDED_BY(mutex_) = nullptr;
  size_t count_ VYN_GUARDED_BY(mutex_) = 0;
  const uint64_t id_;
};

// The library's own heap, created on first use and kept until the end.
GuardedHeap& ProcessHeap();

// Up to `capacity` ids of the registered heaps, in registration order
// (`ids` may be null); returns how many heaps are registered.
size_t GetProcessHeaps(uint64_t* ids, size_t capacity);

enum class HeapValidity { kIntact, kDamaged, kGone };
// Validates the heap with `id` while it is kept from going away.
HeapValidity ValidateProcessHeap(uint64_t id);

// Makes damaged blocks found while freeing end the process. Cannot be
// undone.
void EnableTerminationOnHeapCorruption();
bool IsTerminationOnHeapCorruptionEnabled();

// Data-execution prevention cannot be chosen per process on Linux (the
// kernel and the program's headers decide); false means the facility is
// not available.
bool SetProcessDEPPolicy(uint32_t flags);

}  // namespace vyn::platform
