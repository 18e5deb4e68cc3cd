// ScopedDescriptor: the one owner of a file descriptor. It closes what it
// holds when it goes out of scope, when it is reset, or when it is given
// another descriptor by a move; -1 means it holds nothing.
//
// Ownership: owns the descriptor it holds; movable, not copyable.
// Thread-safety: none; like an int, one thread changes it at a time.
#pragma once

#include <utility>

namespace vyn::platform {

class ScopedDescriptor {
 public:
  ScopedDescriptor() = default;
  explicit ScopedDescriptor(int descriptor) : descriptor_(descriptor) {}
  ~ScopedDescriptor() { Reset(); }
  ScopedDescriptor(ScopedDescriptor&& other) noexcept : descriptor_(other.Release()) {}
  ScopedDescriptor& operator=(ScopedDescriptor&& other) noexcept {
    if (this != &other) Reset(other.Release());
    return *this;
  }
  ScopedDescriptor(const ScopedDescriptor&) = delete;
  ScopedDescriptor& operator=(const ScopedDescriptor&) = delete;

  int get() const { return descriptor_; }
  bool IsValid() const { return descriptor_ >= 0; }
  // Gives the descriptor up without closing it.
  int Release() { return std::exchange(descriptor_, -1); }
  // Closes the descriptor held (if any) and takes `descriptor`.
  void Reset(int descriptor = -1) { CloseDescriptor(std::exchange(descriptor_, descriptor)); }
  // Closes now and tells whether that worked: on a file written through the
  // descriptor, the close may be the first to report a failed write.
  bool Close() { return CloseDescriptor(std::exchange(descriptor_, -1)); }

 private:
  // True for a negative descriptor (nothing to close) and a good close.
  static bool CloseDescriptor(int descriptor);

  int descriptor_ = -1;
};

}  // namespace vyn::platform
