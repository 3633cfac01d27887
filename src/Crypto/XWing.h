#pragma once

#include <cstddef>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "Crypto/X25519.h"

namespace quorvane::crypto {

// X-Wing (draft-connolly-cfrg-xwing-kem): the hybrid of ML-KEM-768 and X25519 whose shared
// secret is SHA3-256 over both secrets, the X25519 ciphertext and public key, and a fixed label.
// The private key is a 32-byte seed that SHAKE256 expands into both private keys.
inline constexpr size_t kXWingSeedSize = 32;
inline constexpr size_t kXWingPublicKeySize = 1216;   // ML-KEM-768 key || X25519 key
inline constexpr size_t kXWingCiphertextSize = 1120;  // ML-KEM-768 ciphertext || X25519 key
inline constexpr size_t kXWingSharedSecretSize = 32;
// EncapsulateDerand's seed: the ML-KEM message m, then the ephemeral X25519 private key.
inline constexpr size_t kXWingEncapsulationSeedSize = 64;

struct XWingEncapsulation {
  Bytes ciphertext;
  SecureBytes sharedSecret;
};

// A recipient's public key, checked on construction.
class XWingPublicKey {
 public:
  // Nothing unless `bytes` is 1216 bytes whose ML-KEM part passes the encapsulation key check.
  static std::optional<XWingPublicKey> fromBytes(ByteView bytes);

  const Bytes& bytes() const { return bytes_; }

  // A fresh shared secret and its ciphertext; nothing when X25519 refuses the key's curve point
  // (one of small order). Throws CryptoError only if OpenSSL itself fails.
  std::optional<XWingEncapsulation> encapsulate() const;
  // EncapsulateDerand with a 64-byte seed, for known-answer tests. REQUIRES: 64 bytes.
  std::optional<XWingEncapsulation> encapsulate(ByteView seed) const;

  friend bool operator==(const XWingPublicKey&, const XWingPublicKey&) = default;

 private:
  friend class XWingPrivateKey;
  explicit XWingPublicKey(Bytes bytes) : bytes_(std::move(bytes)) {}
  Bytes bytes_;
};

// A private key: its seed and the keys the seed expands to (kept, so that each decapsulation does
// not expand again). Copies share nothing mutable.
class XWingPrivateKey {
 public:
  // A fresh seed from OpenSSL's generator.
  static XWingPrivateKey generate();
  // The key of a 32-byte seed; nothing for another size.
  static std::optional<XWingPrivateKey> fromSeed(ByteView seed);

  // The 32-byte seed: the key's whole persistent form.
  const SecureBytes& seed() const { return seed_; }
  const XWingPublicKey& publicKey() const { return publicKey_; }

  // The shared secret of a ciphertext. A ciphertext not made for this key gives an unrelated
  // secret (implicit rejection). Nothing when the ciphertext is not 1120 bytes or its X25519 part
  // is a point of small order.
  std::optional<SecureBytes> decapsulate(ByteView ciphertext) const;

 private:
  XWingPrivateKey(SecureBytes seed, SecureBytes mlkemKey, X25519PrivateKey x25519Key,
                  XWingPublicKey publicKey);
  SecureBytes seed_;
  SecureBytes mlkemDecapsulationKey_;
  X25519PrivateKey x25519Key_;
  XWingPublicKey publicKey_;
};

}  // namespace quorvane::crypto
