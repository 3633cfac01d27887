#include "KeyImport/ImportMessages.h"

namespace quorvane {

std::string importErrorMessage(const KeyImportError& error) {
  using Kind = KeyImportError::Kind;
  switch (error.kind()) {
    case Kind::unsupportedFormat: return "Unsupported key format (" + error.detail() + ").";
    case Kind::unsupportedCipher:
      return "This key is encrypted with " + error.detail() +
             ", which Quorvane can't read. Re-encrypt it with ssh-keygen -p, then try again.";
    case Kind::unsupportedKeyType:
      return "Quorvane can't import this key type (" + error.detail() +
             "). Supported: Ed25519, ECDSA P-256 and P-384, RSA from 2048 bits.";
    case Kind::rsaKeyTooSmall:
      return "This RSA key has only " + std::to_string(error.bits()) +
             " bits. Quorvane imports RSA keys from 2048 bits.";
    case Kind::passphraseRequired: return "This key is protected by a passphrase. Enter it above.";
    case Kind::wrongPassphrase: return "The passphrase is wrong.";
    case Kind::malformed: return "This doesn't look like a valid private key.";
    case Kind::multipleKeys:
      return "This file contains more than one key. Quorvane imports one key at a time.";
    case Kind::publicKeyOnly:
      return "This is a public key. Choose the private key file (without .pub).";
    case Kind::inconsistentKey: return "This doesn't look like a valid private key.";
  }
  return "This doesn't look like a valid private key.";
}

std::optional<std::string> importNotice(const ParsedPrivateKey& key) {
  if (key.key.algorithm() == KeyAlgorithm::rsa && key.key.bits() < 3072)
    return "RSA below 3072 bits: GitHub no longer accepts such keys for new uploads. Consider "
           "replacing it with a TPM key.";
  return std::nullopt;
}

}  // namespace quorvane
