#include "KeyStore/InMemorySecretStore.h"

namespace quorvane {

std::optional<SecureBytes> InMemorySecretStore::read(const UUID& id) {
  std::lock_guard lock(mutex_);
  auto found = items_.find(id);
  if (found == items_.end()) return std::nullopt;
  return found->second;
}

void InMemorySecretStore::store(const UUID& id, ByteView secret) {
  std::lock_guard lock(mutex_);
  items_[id] = SecureBytes(secret);
}

void InMemorySecretStore::remove(const UUID& id) {
  std::lock_guard lock(mutex_);
  items_.erase(id);
}

}  // namespace quorvane
