#pragma once

#include <openssl/evp.h>

#include <memory>

#include "ApprovalProto/QAPSigner.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// A P-256 signing key held by OpenSSL in this process. Copies share the key, which OpenSSL wipes
// when the last copy dies.
class SoftwareSigner final : public QAPSigner {
 public:
  // A fresh key from OpenSSL's generator.
  static SoftwareSigner generate();
  // The key of a 32-byte big-endian private scalar (its raw representation); QAPFailure malformed
  // when the bytes are not a P-256 private key (another size, zero, or not below the group order).
  static SoftwareSigner fromPrivateKey(ByteView rawPrivateKey);

  // The 32-byte raw representation, for storing the key.
  SecureBytes privateKey() const;

  Bytes publicKey() const override { return publicKey_; }
  // Throws CryptoError only if OpenSSL itself fails.
  Bytes sign(ByteView data) const override;

 private:
  explicit SoftwareSigner(EVP_PKEY* key);
  std::shared_ptr<EVP_PKEY> key_;
  Bytes publicKey_;
};

}  // namespace quorvane
