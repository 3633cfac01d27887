#pragma once

#include <string>

#include "Base/EnumNames.h"
#include "Base/Error.h"

namespace quorvane {

enum class KeyImportErrorKind {
  unsupportedFormat,
  unsupportedCipher,
  unsupportedKeyType,
  rsaKeyTooSmall,
  passphraseRequired,
  wrongPassphrase,
  malformed,
  multipleKeys,
  publicKeyOnly,
  inconsistentKey,
};

// The text of the first three kinds and the bit count of rsaKeyTooSmall; empty and 0 otherwise.
struct KeyImportErrorPayload {
  std::string detail;
  int bits = 0;
  friend bool operator==(const KeyImportErrorPayload&, const KeyImportErrorPayload&) = default;
};

// The one error of the key importer. Each kind carries only its own payload:
//   unsupportedFormat(found)     a recognised file format or variant that is not read
//   unsupportedCipher(name)      encrypted with a cipher (or scheme) that is not implemented
//   unsupportedKeyType(type)     a key algorithm or size that is not imported
//   rsaKeyTooSmall(bits)         an RSA key below the minimum size
//   passphraseRequired           encrypted, and no passphrase was given
//   wrongPassphrase              decryption failed its integrity test
//   malformed                    the structure is broken somewhere
//   multipleKeys                 more than one private key in the file
//   publicKeyOnly                the file holds only a public key
//   inconsistentKey              the private key does not belong to the public key beside it, or
//                                fails the signing test
// The message is the kind's name with its payload: "rsaKeyTooSmall(1024)". importErrorMessage
// (ImportMessages.h) turns an error into the sentence shown to the user.
class KeyImportError
    : public KindedError<KeyImportError, KeyImportErrorKind, KeyImportErrorPayload> {
 public:
  static constexpr EnumNames<Kind, 10> kKindNames{
      "KeyImportError",
      {{{Kind::unsupportedFormat, "unsupportedFormat"},
        {Kind::unsupportedCipher, "unsupportedCipher"},
        {Kind::unsupportedKeyType, "unsupportedKeyType"},
        {Kind::rsaKeyTooSmall, "rsaKeyTooSmall"},
        {Kind::passphraseRequired, "passphraseRequired"},
        {Kind::wrongPassphrase, "wrongPassphrase"},
        {Kind::malformed, "malformed"},
        {Kind::multipleKeys, "multipleKeys"},
        {Kind::publicKeyOnly, "publicKeyOnly"},
        {Kind::inconsistentKey, "inconsistentKey"}}}};

  static KeyImportError unsupportedFormat(std::string found);
  static KeyImportError unsupportedCipher(std::string name);
  static KeyImportError unsupportedKeyType(std::string type);
  static KeyImportError rsaKeyTooSmall(int bits);
  static KeyImportError passphraseRequired();
  static KeyImportError wrongPassphrase();
  static KeyImportError malformed();
  static KeyImportError multipleKeys();
  static KeyImportError publicKeyOnly();
  static KeyImportError inconsistentKey();

  const std::string& detail() const { return payload().detail; }
  int bits() const { return payload().bits; }

 private:
  KeyImportError(Kind kind, KeyImportErrorPayload payload);
};

}  // namespace quorvane
