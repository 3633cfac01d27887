#include "KeyStore/KeyStoreError.h"

#include <utility>

namespace quorvane {

namespace {

std::string describe(KeyStoreError::Kind kind, const std::string& text, KeychainStatus status,
                     const UUID& id) {
  switch (kind) {
    case KeyStoreError::Kind::accessControl: return "access control: " + text;
    case KeyStoreError::Kind::keychain: return "keychain status " + std::to_string(status);
    case KeyStoreError::Kind::keyMissing: return "no secret for key " + id.uuidString();
    case KeyStoreError::Kind::unsupported: return "unsupported: " + text;
    case KeyStoreError::Kind::invalidSecret: return "invalid secret for key " + id.uuidString();
    case KeyStoreError::Kind::secureEnclaveUnavailable: return "no hardware key backend";
    case KeyStoreError::Kind::duplicateKey: return "the key is already in the list";
    case KeyStoreError::Kind::rsaSHA1Refused: return "RSA signature with SHA-1 refused";
    case KeyStoreError::Kind::unknownKey: return "no key " + id.uuidString();
  }
  return "key store error";
}

}  // namespace

KeyStoreError::KeyStoreError(Kind kind, std::string text, KeychainStatus status, UUID id)
    : std::runtime_error(describe(kind, text, status, id)),
      kind_(kind),
      text_(std::move(text)),
      status_(status),
      id_(id) {}

KeyStoreError KeyStoreError::accessControl(std::string description) {
  return {Kind::accessControl, std::move(description), 0, {}};
}
KeyStoreError KeyStoreError::keychain(KeychainStatus status) {
  return {Kind::keychain, "", status, {}};
}
KeyStoreError KeyStoreError::keyMissing(const UUID& id) { return {Kind::keyMissing, "", 0, id}; }
KeyStoreError KeyStoreError::unsupported(std::string reason) {
  return {Kind::unsupported, std::move(reason), 0, {}};
}
KeyStoreError KeyStoreError::invalidSecret(const UUID& id) {
  return {Kind::invalidSecret, "", 0, id};
}
KeyStoreError KeyStoreError::secureEnclaveUnavailable() {
  return {Kind::secureEnclaveUnavailable, "", 0, {}};
}
KeyStoreError KeyStoreError::duplicateKey() { return {Kind::duplicateKey, "", 0, {}}; }
KeyStoreError KeyStoreError::rsaSHA1Refused() { return {Kind::rsaSHA1Refused, "", 0, {}}; }
KeyStoreError KeyStoreError::unknownKey(const UUID& id) { return {Kind::unknownKey, "", 0, id}; }

}  // namespace quorvane
