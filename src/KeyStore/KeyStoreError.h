#pragma once

#include <cstdint>
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
  wrongPIN,
  pinLockedOut,
};

// The description of accessControl, the reason of unsupported or the hardware's report of
// hardwareFailed (empty otherwise), the status of
// keychain (0 otherwise) and the record id of keyMissing, invalidSecret and unknownKey (all zero
// otherwise), and the tries left of wrongPIN or the seconds to wait of pinLockedOut (0 otherwise).
struct KeyStoreErrorPayload {
  std::string text;
  KeychainStatus status = 0;
  UUID id;
  uint32_t count = 0;
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
//   wrongPIN(triesLeft)         the hardware refused the key's PIN and counted the failure;
//                               `triesLeft` (at least 1) more may be tried before Quorvane stops
//   pinLockedOut(seconds)       no PIN is tried now: the hardware locked PIN keys after too many
//                               failures, or one more failure would make it; wait `seconds`
// The application composes the user's sentences from the kind and payload.
class KeyStoreError : public KindedError<KeyStoreError, KeyStoreErrorKind, KeyStoreErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 12> kKindNames{
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
        {Kind::hardwareFailed, "hardwareFailed"},
        {Kind::wrongPIN, "wrongPIN"},
        {Kind::pinLockedOut, "pinLockedOut"}}}};

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
  static KeyStoreError wrongPIN(uint32_t triesLeft);
  static KeyStoreError pinLockedOut(uint32_t seconds);

  const std::string& text() const { return payload().text; }
  KeychainStatus status() const { return payload().status; }
  const UUID& id() const { return payload().id; }
  uint32_t count() const { return payload().count; }

 private:
  KeyStoreError(Kind kind, KeyStoreErrorPayload payload);
};

}  // namespace quorvane
