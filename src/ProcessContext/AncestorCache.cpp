#include "ProcessContext/AncestorCache.h"

#include <utility>

namespace quorvane {

std::optional<AncestorCache::Described> AncestorCache::find(
    const Key& key, std::chrono::steady_clock::time_point now) {
  std::lock_guard lock(mutex_);
  auto found = entries_.find(key);
  if (found == entries_.end()) return std::nullopt;
  if (now - found->second.madeAt >= kFreshness) {
    entries_.erase(found);
    return std::nullopt;
  }
  return found->second.described;
}

void AncestorCache::store(const Key& key, Described described,
                          std::chrono::steady_clock::time_point now) {
  std::lock_guard lock(mutex_);
  if (entries_.size() >= kCapacity) {
    std::erase_if(entries_,
                  [&](const auto& item) { return now - item.second.madeAt >= kFreshness; });
    if (entries_.size() >= kCapacity) entries_.clear();
  }
  entries_.insert_or_assign(key, Stored{std::move(described), now});
}

}  // namespace quorvane
