#include "vyn/platform/guarded_heap.h"

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "vyn/platform/crash.h"

namespace vyn::platform {

// Guard words are mixed with the block's address, so that a block copied
// elsewhere, or a stray pattern, does not pass as intact.
constexpr uint64_t kFrontGuard = 0x5659'4E48'4541'5046;  // "VYNHEAPF"
constexpr uint64_t kBackGuard = 0x5659'4E48'4541'5042;   // "VYNHEAPB"

struct GuardedHeap::BlockHeader {
  BlockHeader* previous;
  BlockHeader* next;
  size_t size;
  uint64_t front_guard;  // last, right before the data
};

namespace {

std::atomic<uint64_t> g_next_heap_id{1};
std::atomic<bool> g_terminate_on_corruption{false};

struct HeapList {
  Mutex mutex;
  std::vector<GuardedHeap*> heaps VYN_GUARDED_BY(mutex);
};

// Never destroyed: heaps that live in other static objects may leave the
// list during the process's exit, in any order.
HeapList& List() {
  static auto* list = new HeapList;
  return *list;
}

uint64_t Front(const void* header) { return kFrontGuard ^ reinterpret_cast<uintptr_t>(header); }
uint64_t Back(const void* header) { return kBackGuard ^ reinterpret_cast<uintptr_t>(header); }

}  // namespace

GuardedHeap::GuardedHeap() : id_(g_next_heap_id.fetch_add(1)) {
  HeapList& list = List();
  MutexLock guard(&list.mutex);
  list.heaps.push_back(this);
}

GuardedHeap::~GuardedHeap() {
  {
    HeapList& list = List();
    MutexLock guard(&list.mutex);
    list.heaps.erase(std::remove(list.heaps.begin(), list.heaps.end(), this), list.heaps.end());
  }
  MutexLock guard(&mutex_);
  BlockHeader* block = first_;
  while (block != nullptr) {
    BlockHeader* next = block->next;
    std::free(block);
    block = next;
  }
}

void* GuardedHeap::Allocate(size_t size) {
  if (size > SIZE_MAX - sizeof(BlockHeader) - sizeof(uint64_t)) return nullptr;
  void* raw = std::malloc(sizeof(BlockHeader) + size + sizeof(uint64_t));
  if (raw == nullptr) return nullptr;
  auto* header = static_cast<BlockHeader*>(raw);
  unsigned char* data = static_cast<unsigned char*>(raw) + sizeof(BlockHeader);
  const uint64_t back = Back(header);
  std::memcpy(data + size, &back, sizeof back);
  header->size = size;
  header->front_guard = Front(header);
  MutexLock guard(&mutex_);
  header->previous = nullptr;
  header->next = first_;
  if (first_ != nullptr) first_->previous = header;
  first_ = header;
  ++count_;
  return data;
}

bool GuardedHeap::IsIntactLocked(const BlockHeader* header) const {
  if (header->front_guard != Front(header)) return false;
  if (header->next != nullptr && header->next->previous != header) return false;
  if (header->previous == nullptr ? first_ != header : header->previous->next != header) {
    return false;
  }
  uint64_t back = 0;
  std::memcpy(&back, reinterpret_cast<const unsigned char*>(header + 1) + header->size,
              sizeof back);
  return back == Back(header);
}

bool GuardedHeap::Free(void* block) {
  if (block == nullptr) return true;
  auto* header =
      reinterpret_cast<BlockHeader*>(static_cast<unsigned char*>(block) - sizeof(BlockHeader));
  bool intact = false;
  {
    MutexLock guard(&mutex_);
    intact = IsIntactLocked(header);
    if (intact) {
      if (header->previous != nullptr) {
        header->previous->next = header->next;
      } else {
        first_ = header->next;
      }
      if (header->next != nullptr) header->next->previous = header->previous;
      --count_;
    }
  }
  if (intact) {
    std::free(header);
    return true;
  }
  if (g_terminate_on_corruption.load()) {
    if (AreCrashHandlersInstalled()) RaiseEndOfProcess(VYN_END_OF_PROCESS_HEAP_CORRUPTION);
    std::abort();
  }
  return false;
}

bool GuardedHeap::Validate() {
  MutexLock guard(&mutex_);
  size_t seen = 0;
  for (const BlockHeader* block = first_; block != nullptr; block = block->next) {
    // A damaged link could lead in a circle; the count bounds the walk.
    if (++seen > count_ || !IsIntactLocked(block)) return false;
  }
  return seen == count_;
}

void GuardedHeap::DamageBlockEnd(void* block) {
  auto* header =
      reinterpret_cast<BlockHeader*>(static_cast<unsigned char*>(block) - sizeof(BlockHeader));
  MutexLock guard(&mutex_);
  const uint64_t damage = ~Back(header);
  std::memcpy(static_cast<unsigned char*>(block) + header->size, &damage, sizeof damage);
}

GuardedHeap& ProcessHeap() {
  static auto* heap = new GuardedHeap;  // kept: blocks may be freed during exit
  return *heap;
}

size_t GetProcessHeaps(uint64_t* ids, size_t capacity) {
  HeapList& list = List();
  MutexLock guard(&list.mutex);
  if (ids != nullptr) {
    for (size_t i = 0; i < list.heaps.size() && i < capacity; ++i) ids[i] = list.heaps[i]->id();
  }
  return list.heaps.size();
}

HeapValidity ValidateProcessHeap(uint64_t id) {
  HeapList& list = List();
  MutexLock guard(&list.mutex);
  for (GuardedHeap* heap : list.heaps) {
    if (heap->id() == id) return heap->Validate() ? HeapValidity::kIntact : HeapValidity::kDamaged;
  }
  return HeapValidity::kGone;
}

void EnableTerminationOnHeapCorruption() { g_terminate_on_corruption.store(true); }

bool IsTerminationOnHeapCorruptionEnabled() { return g_terminate_on_corruption.load(); }

bool SetProcessDEPPolicy(uint32_t /*flags*/) { return false; }

}  // namespace vyn::platform
