#pragma once

#include <openssl/crypto.h>

#include <cstddef>
#include <memory>

namespace quorvane {

// An allocator that wipes every block (OPENSSL_cleanse) before it is freed, so that a container
// of secrets leaves nothing behind: not when it dies, not when it grows into a new block.
template <class T>
struct WipingAllocator {
  using value_type = T;

  WipingAllocator() = default;
  template <class U>
  WipingAllocator(const WipingAllocator<U>&) noexcept {}

  T* allocate(size_t count) { return std::allocator<T>().allocate(count); }
  void deallocate(T* block, size_t count) noexcept {
    OPENSSL_cleanse(block, count * sizeof(T));
    std::allocator<T>().deallocate(block, count);
  }

  friend bool operator==(const WipingAllocator&, const WipingAllocator&) { return true; }
};

}  // namespace quorvane
