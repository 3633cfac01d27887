#include "RelayClient/RelayCursors.h"

#include <algorithm>

namespace quorvane {

uint64_t RelayCursors::read(const std::string& id) const {
  MutexLock lock(mutex_);
  auto found = seen_.find(id);
  return found == seen_.end() ? 0 : found->second;
}

void RelayCursors::raise(const std::string& id, uint64_t seq) {
  MutexLock lock(mutex_);
  uint64_t& cursor = seen_[id];
  cursor = std::max(cursor, seq);
}

}  // namespace quorvane
