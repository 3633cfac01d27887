#include "KeyStore/KeychainSealingKey.h"

#include <charconv>
#include <utility>

#include "Base/Random.h"
#include "KeyStore/KeyStoreError.h"

namespace quorvane {

namespace {

constexpr size_t kKeySize = 32;

SecureBytes checkedKey(KeychainReadResult&& result) {
  if (result.status != kKeychainSuccess) throw KeyStoreError::keychain(result.status);
  if (result.data.size() != kKeySize) throw KeyStoreError::keychain(kKeychainDecodeError);
  return std::move(result.data);
}

}  // namespace

KeychainSealingKey::KeychainSealingKey(std::shared_ptr<Keychain> keychain, std::string account)
    : keychain_(std::move(keychain)), account_(std::move(account)) {}

SecureBytes KeychainSealingKey::key() {
  KeychainReadResult found = keychain_->read(kService, account_);
  if (found.status != kKeychainItemNotFound) return checkedKey(std::move(found));

  SecureBytes fresh(kKeySize);
  crypto::fillRandom(std::span<uint8_t>(fresh.data(), fresh.size()));
  const KeychainStatus added = keychain_->add(kService, account_, fresh.view());
  if (added == kKeychainSuccess) return fresh;
  if (added == kKeychainDuplicateItem) return checkedKey(keychain_->read(kService, account_));
  throw KeyStoreError::keychain(added);
}

uint64_t KeychainSealingKey::generation(std::string_view purpose) {
  KeychainReadResult found = keychain_->read(kGenerationService, purpose);
  if (found.status == kKeychainItemNotFound) return 0;
  if (found.status != kKeychainSuccess) throw KeyStoreError::keychain(found.status);
  // Plain decimal digits only: no sign, no spaces, no value past 64 bits.
  const auto* first = reinterpret_cast<const char*>(found.data.data());
  const auto* last = first + found.data.size();
  uint64_t value = 0;
  auto [end, error] = std::from_chars(first, last, value);
  if (error != std::errc() || end != last) throw KeyStoreError::keychain(kKeychainDecodeError);
  return value;
}

void KeychainSealingKey::setGeneration(uint64_t generation, std::string_view purpose) {
  const std::string text = std::to_string(generation);
  const Bytes data = bytesOf(text);
  KeychainStatus status = keychain_->update(kGenerationService, purpose, data);
  if (status == kKeychainItemNotFound) {
    status = keychain_->add(kGenerationService, purpose, data);
    // Added by someone else between the two calls: the update wins, as it would have first.
    if (status == kKeychainDuplicateItem)
      status = keychain_->update(kGenerationService, purpose, data);
  }
  if (status != kKeychainSuccess) throw KeyStoreError::keychain(status);
}

}  // namespace quorvane
