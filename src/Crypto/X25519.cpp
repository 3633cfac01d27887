#include "Crypto/X25519.h"

#include "Base/Check.h"
#include "Base/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {
namespace {

EVP_PKEY* keyFromPrivateBytes(ByteView privateKey) {
  QUORVANE_CHECK(privateKey.size() == kX25519KeySize, "X25519 private keys are 32 bytes");
  return EVP_PKEY_new_raw_private_key(EVP_PKEY_X25519, nullptr, privateKey.data(),
                                      privateKey.size());
}

}  // namespace

X25519PrivateKey::X25519PrivateKey(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {
  if (!key_) throw CryptoError::libraryFailure("X25519 key");
  publicKey_.resize(kX25519KeySize);
  size_t length = publicKey_.size();
  if (EVP_PKEY_get_raw_public_key(key_.get(), publicKey_.data(), &length) != 1 ||
      length != kX25519KeySize)
    throw CryptoError::libraryFailure("EVP_PKEY_get_raw_public_key(X25519)");
}

X25519PrivateKey::X25519PrivateKey(ByteView privateKey)
    : X25519PrivateKey(keyFromPrivateBytes(privateKey)) {}

X25519PrivateKey X25519PrivateKey::generate() {
  return X25519PrivateKey(EVP_PKEY_Q_keygen(nullptr, nullptr, "X25519"));
}

std::optional<SecureBytes> X25519PrivateKey::sharedSecret(ByteView peerPublicKey) const {
  if (peerPublicKey.size() != kX25519KeySize) return std::nullopt;
  EVPPKeyPtr peer(EVP_PKEY_new_raw_public_key(EVP_PKEY_X25519, nullptr, peerPublicKey.data(),
                                              peerPublicKey.size()));
  EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_from_pkey(nullptr, key_.get(), nullptr));
  if (!peer || !context || EVP_PKEY_derive_init(context.get()) != 1)
    throw CryptoError::libraryFailure("X25519 derive setup");
  SecureBytes secret(kX25519KeySize);
  size_t length = secret.size();
  // Every 32 bytes are a public key, so what fails from here on is the peer: OpenSSL refuses a
  // point of small order (all-zero result).
  if (EVP_PKEY_derive_set_peer_ex(context.get(), peer.get(), 0) != 1 ||
      EVP_PKEY_derive(context.get(), secret.data(), &length) != 1 || length != kX25519KeySize) {
    drainOpenSSLErrors();
    return std::nullopt;
  }
  return secret;
}

}  // namespace quorvane::crypto
