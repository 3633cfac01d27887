#pragma once

#include <map>
#include <mutex>

#include "KeyStore/SecretStore.h"

namespace quorvane {

// Secrets held in memory, for tests and previews. Never fails.
class InMemorySecretStore final : public SecretStore {
 public:
  std::optional<SecureBytes> read(const UUID& id) override;
  void store(const UUID& id, ByteView secret) override;
  void remove(const UUID& id) override;

 private:
  std::mutex mutex_;
  std::map<UUID, SecureBytes> items_;  // guarded by mutex_
};

}  // namespace quorvane
