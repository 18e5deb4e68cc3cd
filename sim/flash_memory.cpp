#include "sim/flash_memory.h"

#include <algorithm>

namespace vyn::sim {
namespace {

constexpr uint8_t kErased = 0xFF;

}  // namespace

FlashMemory::FlashMemory(uint32_t base, uint32_t size, const std::vector<uint32_t>& page_sizes)
    : base_(base) {
  const uint64_t room = (uint64_t{1} << 32) - base;
  bytes_.assign(static_cast<size_t>(std::min<uint64_t>(size, room)), kErased);
  std::vector<uint32_t> sizes;
  for (const uint32_t page : page_sizes) {
    if (page != 0) sizes.push_back(page);
  }
  if (sizes.empty()) sizes.push_back(std::max<uint32_t>(this->size(), 1));
  uint64_t offset = 0;
  for (size_t i = 0; offset < bytes_.size(); i = std::min(i + 1, sizes.size() - 1)) {
    page_starts_.push_back(static_cast<uint32_t>(offset));
    offset += sizes[i];
  }
  protected_.assign(page_starts_.size(), false);
}

bool FlashMemory::Contains(uint32_t address, uint32_t length) const {
  if (address < base_) return false;
  const uint64_t offset = address - base_;
  return offset < bytes_.size() && offset + length <= bytes_.size();
}

size_t FlashMemory::PageOf(uint32_t offset) const {
  const auto after = std::upper_bound(page_starts_.begin(), page_starts_.end(), offset);
  return static_cast<size_t>(after - page_starts_.begin()) - 1;
}

bool FlashMemory::Program(uint32_t address, const uint8_t* data, size_t length) {
  if (length == 0) return Contains(address, 0);
  if (length > bytes_.size() || !Contains(address, static_cast<uint32_t>(length))) return false;
  const uint32_t offset = address - base_;
  const size_t last = PageOf(offset + static_cast<uint32_t>(length) - 1);
  for (size_t page = PageOf(offset); page <= last; ++page) {
    if (protected_[page]) return false;
  }
  for (size_t i = 0; i < length; ++i) bytes_[offset + i] &= data[i];
  return true;
}

bool FlashMemory::Read(uint32_t address, uint32_t length, std::vector<uint8_t>* out) const {
  if (!Contains(address, length)) return false;
  const auto first = bytes_.begin() + (address - base_);
  out->assign(first, first + length);
  return true;
}

void FlashMemory::ErasePage(size_t page) {
  const size_t end = page + 1 < page_starts_.size() ? page_starts_[page + 1] : bytes_.size();
  std::fill(bytes_.begin() + page_starts_[page], bytes_.begin() + static_cast<ptrdiff_t>(end),
            kErased);
}

bool FlashMemory::ErasePages(const std::vector<uint32_t>& pages) {
  for (const uint32_t page : pages) {
    if (page >= page_starts_.size() || protected_[page]) return false;
  }
  for (const uint32_t page : pages) ErasePage(page);
  return true;
}

bool FlashMemory::EraseAll() {
  if (AnyPageProtected()) return false;
  std::fill(bytes_.begin(), bytes_.end(), kErased);
  return true;
}

void FlashMemory::EraseAllAndUnprotect() {
  ProtectAll(false);
  EraseAll();
}

bool FlashMemory::IsPageProtected(uint32_t page) const {
  return page < protected_.size() && protected_[page];
}

bool FlashMemory::AnyPageProtected() const {
  return std::find(protected_.begin(), protected_.end(), true) != protected_.end();
}

void FlashMemory::ProtectAll(bool on) { protected_.assign(page_starts_.size(), on); }

bool FlashMemory::ProtectPages(const std::vector<uint32_t>& pages) {
  for (const uint32_t page : pages) {
    if (page >= page_starts_.size()) return false;
  }
  for (const uint32_t page : pages) protected_[page] = true;
  return true;
}

}  // namespace vyn::sim
