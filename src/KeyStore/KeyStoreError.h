#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"
#include "Base/UUID.h"
#include "Platform/Keychain.h"

namespace quorvane {

enum class KeyStoreErrorKind {
  accessControl,
  keychain,
  keyMissing,
  unsupported,
  invalidSecret,
  secureEnclaveUnavailable,
  duplicateKey,
  rsaSHA1Refused,
  unknownKey,
  hardwareFailed,
};

// The description of accessControl, the reason of unsupported or the hardware's report of
// hardwareFailed (empty otherwise), the status of
// keychain (0 otherwise) and the record id of keyMissing, invalidSecret and unknownKey (all zero
// otherwise).
struct KeyStoreErrorPayload {
  std::string text;
  KeychainStatus status = 0;
  UUID id;
  friend bool operator==(const KeyStoreErrorPayload&, const KeyStoreErrorPayload&) = default;
};

// The error of the key store, its secret stores and the keychain-backed sealing key. Each kind
// carries only its own payload:
//   accessControl(description)  the hardware key's protection could not be set up; the
//                               platform's description, or "unknown"
//   keychain(status)            a keychain call failed with `status`
//   keyMissing(id)              no secret is stored for the record `id`
//   unsupported(reason)         an operation this store does not do; `reason` is a fixed text
//   invalidSecret(id)           the secret of record `id` does not make its key
//   secureEnclaveUnavailable    no hardware key backend on this machine
//   duplicateKey                a key whose public key blob is already in the list
//   rsaSHA1Refused              an RSA signature asked for without either SHA-2 flag
//   unknownKey(id)              no record has the id `id`
//   hardwareFailed(report)      the hardware key back end (the TPM) could not do what was asked;
//                               its report of why
// The application composes the user's sentences from the kind and payload.
class KeyStoreError : public KindedError<KeyStoreError, KeyStoreErrorKind, KeyStoreErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 10> kKindNames{
      "KeyStoreError",
      {{{Kind::accessControl, "accessControl"},
        {Kind::keychain, "keychain"},
        {Kind::keyMissing, "keyMissing"},
        {Kind::unsupported, "unsupported"},
        {Kind::invalidSecret, "invalidSecret"},
        {Kind::secureEnclaveUnavailable, "secureEnclaveUnavailable"},
        {Kind::duplicateKey, "duplicateKey"},
        {Kind::rsaSHA1Refused, "rsaSHA1Refused"},
        {Kind::unknownKey, "unknownKey"},
        {Kind::hardwareFailed, "hardwareFailed"}}}};

  static KeyStoreError accessControl(std::string description);
  static KeyStoreError keychain(KeychainStatus status);
  static KeyStoreError keyMissing(const UUID& id);
  static KeyStoreError unsupported(std::string reason);
  static KeyStoreError invalidSecret(const UUID& id);
  static KeyStoreError secureEnclaveUnavailable();
  static KeyStoreError duplicateKey();
  static KeyStoreError rsaSHA1Refused();
  static KeyStoreError unknownKey(const UUID& id);
  static KeyStoreError hardwareFailed(std::string report);

  const std::string& text() const { return payload().text; }
  KeychainStatus status() const { return payload().status; }
  const UUID& id() const { return payload().id; }

 private:
  KeyStoreError(Kind kind, KeyStoreErrorPayload payload);
};

}  // namespace quorvane
