#include "ActivityStore/MemoryChainAnchor.h"

namespace quorvane {

std::optional<SecureBytes> MemoryChainAnchor::chainKey() {
  std::lock_guard guard(lock_);
  return k_;
}

std::optional<ChainEnd> MemoryChainAnchor::head() {
  std::lock_guard guard(lock_);
  return h_;
}

std::optional<ChainEnd> MemoryChainAnchor::start() {
  std::lock_guard guard(lock_);
  return s_;
}

void MemoryChainAnchor::setHead(const std::optional<ChainEnd>& head) {
  std::lock_guard guard(lock_);
  h_ = head;
}

void MemoryChainAnchor::setStart(const std::optional<ChainEnd>& start) {
  std::lock_guard guard(lock_);
  s_ = start;
}

}  // namespace quorvane
