// The flash of a simulated microcontroller: a byte array at a base address,
// divided into pages that are erased as a whole.
//
// It behaves as flash does: erased bytes read 0xFF, and programming can only
// clear bits (the stored byte becomes old AND new), so writing twice over
// the same place without an erase in between gives the AND of both writes.
// Each page can be write-protected; protected pages are neither erased nor
// programmed.
//
// Page layout: a list of page sizes from the base upwards whose last entry
// repeats until the flash ends, so {2048} gives uniform 2 KiB pages and
// {16K, 16K, 16K, 16K, 64K, 128K} the sector layout of the larger parts.
//
// Thread-safety: none; the owner serialises access.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace vyn::sim {

class FlashMemory {
 public:
  // `size` bytes from `base`; sizes of 0 in `page_sizes` are ignored, and an
  // empty list gives a single page. A size that does not fit into the
  // address space is cut at its end.
  FlashMemory(uint32_t base, uint32_t size, const std::vector<uint32_t>& page_sizes);

  uint32_t base() const { return base_; }
  uint32_t size() const { return static_cast<uint32_t>(bytes_.size()); }
  size_t page_count() const { return page_starts_.size(); }
  const std::vector<uint8_t>& bytes() const { return bytes_; }

  // True when [address, address + length) lies inside the flash (length 0:
  // when the address does).
  bool Contains(uint32_t address, uint32_t length) const;

  // Programs `data` at `address`; false (nothing changed) when the range
  // leaves the flash or touches a protected page.
  bool Program(uint32_t address, const uint8_t* data, size_t length);
  // Copies out [address, address + length); false when it leaves the flash.
  bool Read(uint32_t address, uint32_t length, std::vector<uint8_t>* out) const;

  // Erases the listed pages; false (nothing erased) when one does not exist
  // or is protected.
  bool ErasePages(const std::vector<uint32_t>& pages);
  // Erases every page; false (nothing erased) when one is protected.
  bool EraseAll();
  // Erases every page regardless of protection and removes it, as removing
  // the readout protection does.
  void EraseAllAndUnprotect();

  bool IsPageProtected(uint32_t page) const;
  bool AnyPageProtected() const;
  void ProtectAll(bool on);
  // False (nothing changed) when a page does not exist.
  bool ProtectPages(const std::vector<uint32_t>& pages);

 private:
  // Index of the page holding `offset` (an offset into the flash).
  size_t PageOf(uint32_t offset) const;
  void ErasePage(size_t page);

  uint32_t base_;
  std::vector<uint8_t> bytes_;
  std::vector<uint32_t> page_starts_;  // offsets, ascending, the first is 0
  std::vector<bool> protected_;
};

}  // namespace vyn::sim
