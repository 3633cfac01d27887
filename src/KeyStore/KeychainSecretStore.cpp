#include "KeyStore/KeychainSecretStore.h"

#include <utility>

#include "KeyStore/KeyStoreError.h"

namespace quorvane {

KeychainSecretStore::KeychainSecretStore(std::shared_ptr<Keychain> keychain, std::string service)
    : keychain_(std::move(keychain)), service_(std::move(service)) {}

std::optional<SecureBytes> KeychainSecretStore::read(const UUID& id) {
  KeychainReadResult result = keychain_->read(service_, id.uuidString());
  if (result.status == kKeychainItemNotFound) return std::nullopt;
  if (result.status != kKeychainSuccess) throw KeyStoreError::keychain(result.status);
  return std::move(result.data);
}

void KeychainSecretStore::store(const UUID& id, ByteView secret) {
  const std::string account = id.uuidString();
  KeychainStatus status = keychain_->add(service_, account, secret);
  if (status == kKeychainDuplicateItem) status = keychain_->update(service_, account, secret);
  if (status != kKeychainSuccess) throw KeyStoreError::keychain(status);
}

void KeychainSecretStore::remove(const UUID& id) {
  KeychainStatus status = keychain_->remove(service_, id.uuidString());
  if (status != kKeychainSuccess && status != kKeychainItemNotFound)
    throw KeyStoreError::keychain(status);
}

}  // namespace quorvane
