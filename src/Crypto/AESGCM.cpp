#include "Crypto/AESGCM.h"

#include "Base/Check.h"
#include "Crypto/AEADInternal.h"

namespace quorvane::crypto {
namespace {

const EVP_CIPHER* gcmCipher(ByteView key, ByteView nonce) {
  QUORVANE_CHECK(key.size() == 16 || key.size() == 32, "AES-GCM keys are 16 or 32 bytes");
  QUORVANE_CHECK(nonce.size() == kAESGCMNonceSize, "AES-GCM nonces here are 12 bytes");
  return key.size() == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
}

}  // namespace

Bytes aesGCMSeal(ByteView key, ByteView nonce, ByteView plaintext, ByteView associatedData) {
  return aeadSeal(gcmCipher(key, nonce), key, nonce, plaintext, associatedData);
}

std::optional<Bytes> aesGCMOpen(ByteView key, ByteView nonce, ByteView sealed,
                                ByteView associatedData) {
  return aeadOpen(gcmCipher(key, nonce), key, nonce, sealed, associatedData);
}

}  // namespace quorvane::crypto
