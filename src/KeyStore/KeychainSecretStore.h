#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "KeyStore/SecretStore.h"
#include "Platform/Keychain.h"

namespace quorvane {

// Secrets as generic-password items of a keychain: service kService, account = the record id's
// canonical (upper-case) string.
class KeychainSecretStore final : public SecretStore {
 public:
  static constexpr std::string_view kService = "com.tallowmere.quorvane.keys";

  explicit KeychainSecretStore(std::shared_ptr<Keychain> keychain,
                               std::string service = std::string(kService));

  std::optional<SecureBytes> read(const UUID& id) override;
  void store(const UUID& id, ByteView secret) override;
  void remove(const UUID& id) override;

 private:
  std::shared_ptr<Keychain> keychain_;
  std::string service_;
};

}  // namespace quorvane
