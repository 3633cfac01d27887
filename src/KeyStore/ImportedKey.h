#pragma once

#include <memory>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "KeyStore/KeyAlgorithm.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SignFlags.h"

typedef struct evp_pkey_st EVP_PKEY;

namespace quorvane {

// A private key that signs in software: one imported from a key file, or one generated here for a
// machine without a TPM. Its secret form is what the secret store keeps:
//   ed25519     the 32-byte seed
//   ecdsaP256   the private scalar, 32 bytes big-endian (left-padded)
//   ecdsaP384   the private scalar, 48 bytes big-endian (left-padded)
//   rsa         the RSAPrivateKey DER of PKCS#1 (RFC 8017 appendix A.1.2)
// Copies share one immutable OpenSSL key; signing from several threads at once is safe.
class ImportedKey {
 public:
  // The key that `secret` holds, or nothing when the bytes do not make a key of `algorithm` (wrong
  // length, a scalar of 0 or not below the group order, DER that is not exactly one
  // RSAPrivateKey). RSA keys are not checked for consistency here, because the check is slow and
  // this runs for every signature; the importer checks new keys by signing once.
  static std::optional<ImportedKey> fromSecret(KeyAlgorithm algorithm, ByteView secret);

  // A fresh key from OpenSSL's generator. `rsaBits` applies to RSA only.
  // Throws CryptoError if OpenSSL fails.
  static ImportedKey generate(KeyAlgorithm algorithm, int rsaBits = 3072);

  KeyAlgorithm algorithm() const { return algorithm_; }
  // The modulus size for RSA; for the others the size OpenSSL reports for the curve.
  int bits() const;
  const SSHPublicKey& publicKey() const { return publicKey_; }
  // The secret form described above.
  SecureBytes secret() const;

  // An SSH signature blob over `data`: Ed25519; ECDSA with SHA-256 (P-256) or SHA-384 (P-384),
  // r and s of the curve's size; RSA PKCS#1 v1.5 with the SHA-2 hash that the flags choose.
  // REQUIRES: for RSA, signatureAlgorithm(ssh-rsa, flags) names an algorithm (the caller refuses
  // SHA-1 first). Throws CryptoError if OpenSSL fails.
  Bytes sign(ByteView data, SignFlags flags) const;

  // The OpenSSL key, for code in this project that must hand it to OpenSSL (export, checks).
  EVP_PKEY* openSSLKey() const { return key_.get(); }

 private:
  ImportedKey(KeyAlgorithm algorithm, std::shared_ptr<EVP_PKEY> key);

  KeyAlgorithm algorithm_;
  std::shared_ptr<EVP_PKEY> key_;
  SSHPublicKey publicKey_;
};

}  // namespace quorvane
