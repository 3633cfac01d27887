#pragma once

#include <openssl/evp.h>

#include <cstddef>
#include <memory>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto {

inline constexpr size_t kX25519KeySize = 32;

// An X25519 private key (RFC 7748). The secret stays inside OpenSSL, which wipes it when the last
// copy of the key dies; copies share it.
class X25519PrivateKey {
 public:
  // From 32 private bytes; X25519 clamps them itself, so any 32 bytes are a key. REQUIRES: 32
  // bytes. Throws CryptoError only if OpenSSL itself fails.
  explicit X25519PrivateKey(ByteView privateKey);
  // A fresh key from OpenSSL's generator.
  static X25519PrivateKey generate();

  // X25519(k, 9), 32 bytes.
  const Bytes& publicKey() const { return publicKey_; }

  // X25519(k, peer), 32 bytes; nothing when the peer key is not 32 bytes or is a point of small
  // order (OpenSSL refuses the all-zero result, which an honest peer never causes).
  std::optional<SecureBytes> sharedSecret(ByteView peerPublicKey) const;

 private:
  explicit X25519PrivateKey(EVP_PKEY* key);
  std::shared_ptr<EVP_PKEY> key_;
  Bytes publicKey_;
};

}  // namespace quorvane::crypto
