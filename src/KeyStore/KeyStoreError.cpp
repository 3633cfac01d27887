#include "KeyStore/KeyStoreError.h"

#include <utility>

namespace quorvane {

namespace {

std::string describe(KeyStoreError::Kind kind, const KeyStoreErrorPayload& payload) {
  switch (kind) {
    case KeyStoreError::Kind::accessControl: return "access control: " + payload.text;
    case KeyStoreError::Kind::keychain: return "keychain status " + std::to_string(payload.status);
    case KeyStoreError::Kind::keyMissing: return "no secret for key " + payload.id.uuidString();
    case KeyStoreError::Kind::unsupported: return "unsupported: " + payload.text;
    case KeyStoreError::Kind::invalidSecret:
      return "invalid secret for key " + payload.id.uuidString();
    case KeyStoreError::Kind::secureEnclaveUnavailable: return "no usable TPM";
    case KeyStoreError::Kind::duplicateKey: return "the key is already in the list";
    case KeyStoreError::Kind::rsaSHA1Refused: return "RSA signature with SHA-1 refused";
    case KeyStoreError::Kind::unknownKey: return "no key " + payload.id.uuidString();
    case KeyStoreError::Kind::hardwareFailed: return "TPM: " + payload.text;
    case KeyStoreError::Kind::wrongPIN:
      return "wrong PIN; " + std::to_string(payload.count) +
             (payload.count == 1 ? " try" : " tries") + " left";
    case KeyStoreError::Kind::pinLockedOut:
      return "too many wrong PINs; the TPM takes PINs again in about " +
             std::to_string(payload.count) + " s";
  }
  return "key store error";
}

}  // namespace

KeyStoreError::KeyStoreError(Kind kind, KeyStoreErrorPayload payload)
    : KindedError(kind, payload, describe(kind, payload)) {}

KeyStoreError KeyStoreError::accessControl(std::string description) {
  return {Kind::accessControl, {std::move(description), 0, {}}};
}
KeyStoreError KeyStoreError::keychain(KeychainStatus status) {
  return {Kind::keychain, {"", status, {}}};
}
KeyStoreError KeyStoreError::keyMissing(const UUID& id) { return {Kind::keyMissing, {"", 0, id}}; }
KeyStoreError KeyStoreError::unsupported(std::string reason) {
  return {Kind::unsupported, {std::move(reason), 0, {}}};
}
KeyStoreError KeyStoreError::invalidSecret(const UUID& id) {
  return {Kind::invalidSecret, {"", 0, id}};
}
KeyStoreError KeyStoreError::secureEnclaveUnavailable() {
  return {Kind::secureEnclaveUnavailable, {}};
}
KeyStoreError KeyStoreError::duplicateKey() { return {Kind::duplicateKey, {}}; }
KeyStoreError KeyStoreError::rsaSHA1Refused() { return {Kind::rsaSHA1Refused, {}}; }
KeyStoreError KeyStoreError::unknownKey(const UUID& id) { return {Kind::unknownKey, {"", 0, id}}; }
KeyStoreError KeyStoreError::hardwareFailed(std::string report) {
  return {Kind::hardwareFailed, {std::move(report), 0, {}}};
}
KeyStoreError KeyStoreError::wrongPIN(uint32_t triesLeft) {
  return {Kind::wrongPIN, {"", 0, {}, triesLeft}};
}
KeyStoreError KeyStoreError::pinLockedOut(uint32_t seconds) {
  return {Kind::pinLockedOut, {"", 0, {}, seconds}};
}

}  // namespace quorvane
