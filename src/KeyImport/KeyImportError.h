#pragma once

#include <ostream>
#include <stdexcept>
#include <string>

namespace quorvane {

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
// importErrorMessage (ImportMessages.h) turns an error into the sentence shown to the user.
class KeyImportError : public std::runtime_error {
 public:
  enum class Kind {
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

  Kind kind() const { return kind_; }
  // The text payload of the first three kinds; empty for the others.
  const std::string& detail() const { return detail_; }
  // The bit count of rsaKeyTooSmall; 0 for the others.
  int bits() const { return bits_; }

  friend bool operator==(const KeyImportError& a, const KeyImportError& b) {
    return a.kind_ == b.kind_ && a.detail_ == b.detail_ && a.bits_ == b.bits_;
  }
  friend std::ostream& operator<<(std::ostream& out, const KeyImportError& error) {
    return out << error.what();
  }

 private:
  KeyImportError(Kind kind, std::string detail, int bits);
  Kind kind_;
  std::string detail_;
  int bits_;
};

// The case name, e.g. "malformed".
const char* kindName(KeyImportError::Kind kind);

}  // namespace quorvane
