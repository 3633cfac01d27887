#pragma once

#include <ostream>
#include <stdexcept>
#include <string>

#include "Base/UUID.h"
#include "Platform/Keychain.h"

namespace quorvane {

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
// The application composes the user's sentences from the kind and payload.
class KeyStoreError : public std::runtime_error {
 public:
  enum class Kind {
    accessControl,
    keychain,
    keyMissing,
    unsupported,
    invalidSecret,
    secureEnclaveUnavailable,
    duplicateKey,
    rsaSHA1Refused,
    unknownKey,
  };

  static KeyStoreError accessControl(std::string description);
  static KeyStoreError keychain(KeychainStatus status);
  static KeyStoreError keyMissing(const UUID& id);
  static KeyStoreError unsupported(std::string reason);
  static KeyStoreError invalidSecret(const UUID& id);
  static KeyStoreError secureEnclaveUnavailable();
  static KeyStoreError duplicateKey();
  static KeyStoreError rsaSHA1Refused();
  static KeyStoreError unknownKey(const UUID& id);

  Kind kind() const { return kind_; }
  // The description of accessControl or the reason of unsupported; empty for the other kinds.
  const std::string& text() const { return text_; }
  // The status of keychain; 0 for the other kinds.
  KeychainStatus status() const { return status_; }
  // The record id of keyMissing, invalidSecret and unknownKey; all zero for the other kinds.
  const UUID& id() const { return id_; }

  friend bool operator==(const KeyStoreError& a, const KeyStoreError& b) {
    return a.kind_ == b.kind_ && a.text_ == b.text_ && a.status_ == b.status_ && a.id_ == b.id_;
  }
  friend std::ostream& operator<<(std::ostream& out, const KeyStoreError& error) {
    return out << error.what();
  }

 private:
  KeyStoreError(Kind kind, std::string text, KeychainStatus status, UUID id);
  Kind kind_;
  std::string text_;
  KeychainStatus status_;
  UUID id_;
};

}  // namespace quorvane
