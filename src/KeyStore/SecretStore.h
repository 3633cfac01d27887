#pragma once

#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "Base/UUID.h"

namespace quorvane {

// Where the private material behind key records lives, one secret per record id. Failures of the
// underlying store are KeyStoreError::keychain(status).
class SecretStore {
 public:
  virtual ~SecretStore() = default;

  // The secret stored for `id`, or nothing when there is none.
  virtual std::optional<SecureBytes> read(const UUID& id) = 0;
  // Stores `secret` for `id`, replacing any secret stored before.
  virtual void store(const UUID& id, ByteView secret) = 0;
  // Deletes the secret for `id`; deleting one that does not exist is not an error.
  virtual void remove(const UUID& id) = 0;
};

}  // namespace quorvane
