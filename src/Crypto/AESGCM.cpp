#include "Crypto/AESGCM.h"

#include <openssl/evp.h>

#include <memory>

#include "Crypto/Check.h"
#include "Crypto/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"
#include "Crypto/SecureBytes.h"

namespace quorvane::crypto {
namespace {

using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, OpenSSLDeleter<EVP_CIPHER_CTX_free>>;

const EVP_CIPHER* gcmCipher(size_t keySize) {
  QUORVANE_CHECK(keySize == 16 || keySize == 32, "AES-GCM keys are 16 or 32 bytes");
  return keySize == 16 ? EVP_aes_128_gcm() : EVP_aes_256_gcm();
}

// Sets up `context` for one message and feeds the associated data.
CipherCtxPtr startGCM(bool encrypt, ByteView key, ByteView nonce, ByteView associatedData) {
  QUORVANE_CHECK(nonce.size() == kAESGCMNonceSize, "AES-GCM nonces here are 12 bytes");
  CipherCtxPtr context(EVP_CIPHER_CTX_new());
  if (!context || EVP_CipherInit_ex(context.get(), gcmCipher(key.size()), nullptr, key.data(),
                                    nonce.data(), encrypt ? 1 : 0) != 1)
    throw CryptoError::libraryFailure("EVP_CipherInit_ex");
  int length = 0;
  if (!associatedData.empty() &&
      EVP_CipherUpdate(context.get(), nullptr, &length, associatedData.data(),
                       static_cast<int>(associatedData.size())) != 1)
    throw CryptoError::libraryFailure("EVP_CipherUpdate(aad)");
  return context;
}

}  // namespace

Bytes aesGCMSeal(ByteView key, ByteView nonce, ByteView plaintext, ByteView associatedData) {
  CipherCtxPtr context = startGCM(true, key, nonce, associatedData);
  Bytes out(plaintext.size() + kAESGCMTagSize);
  int length = 0;
  if (!plaintext.empty() && EVP_EncryptUpdate(context.get(), out.data(), &length, plaintext.data(),
                                              static_cast<int>(plaintext.size())) != 1)
    throw CryptoError::libraryFailure("EVP_EncryptUpdate");
  int finalLength = 0;
  if (EVP_EncryptFinal_ex(context.get(), out.data() + length, &finalLength) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_GET_TAG, kAESGCMTagSize,
                          out.data() + plaintext.size()) != 1)
    throw CryptoError::libraryFailure("EVP_EncryptFinal_ex");
  return out;
}

std::optional<Bytes> aesGCMOpen(ByteView key, ByteView nonce, ByteView sealed,
                                ByteView associatedData) {
  if (sealed.size() < kAESGCMTagSize) return std::nullopt;
  const size_t textSize = sealed.size() - kAESGCMTagSize;
  CipherCtxPtr context = startGCM(false, key, nonce, associatedData);
  Bytes out(textSize);
  int length = 0;
  if (textSize > 0 && EVP_DecryptUpdate(context.get(), out.data(), &length, sealed.data(),
                                        static_cast<int>(textSize)) != 1)
    throw CryptoError::libraryFailure("EVP_DecryptUpdate");
  Bytes tag(sealed.begin() + static_cast<ptrdiff_t>(textSize), sealed.end());
  if (EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_GCM_SET_TAG, kAESGCMTagSize, tag.data()) != 1)
    throw CryptoError::libraryFailure("EVP_CTRL_GCM_SET_TAG");
  int finalLength = 0;
  if (EVP_DecryptFinal_ex(context.get(), out.data() + length, &finalLength) != 1) {
    drainOpenSSLErrors();
    secureWipe(out);
    return std::nullopt;
  }
  return out;
}

}  // namespace quorvane::crypto
