#include "Crypto/ChaCha20Poly1305.h"

#include <openssl/evp.h>

#include <memory>

#include "Crypto/Check.h"
#include "Crypto/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"
#include "Crypto/SecureBytes.h"

namespace quorvane::crypto {
namespace {

using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, OpenSSLDeleter<EVP_CIPHER_CTX_free>>;

CipherCtxPtr start(bool encrypt, ByteView key, ByteView nonce, ByteView associatedData) {
  QUORVANE_CHECK(key.size() == kChaCha20Poly1305KeySize, "ChaCha20-Poly1305 keys are 32 bytes");
  QUORVANE_CHECK(nonce.size() == kChaCha20Poly1305NonceSize,
                 "ChaCha20-Poly1305 nonces are 12 bytes");
  CipherCtxPtr context(EVP_CIPHER_CTX_new());
  if (!context || EVP_CipherInit_ex(context.get(), EVP_chacha20_poly1305(), nullptr, key.data(),
                                    nonce.data(), encrypt ? 1 : 0) != 1)
    throw CryptoError::libraryFailure("EVP_CipherInit_ex(ChaCha20-Poly1305)");
  int length = 0;
  if (!associatedData.empty() &&
      EVP_CipherUpdate(context.get(), nullptr, &length, associatedData.data(),
                       static_cast<int>(associatedData.size())) != 1)
    throw CryptoError::libraryFailure("EVP_CipherUpdate(aad)");
  return context;
}

}  // namespace

Bytes chaCha20Poly1305Seal(ByteView key, ByteView nonce, ByteView plaintext,
                           ByteView associatedData) {
  CipherCtxPtr context = start(true, key, nonce, associatedData);
  Bytes out(plaintext.size() + kChaCha20Poly1305TagSize);
  int length = 0;
  if (!plaintext.empty() && EVP_EncryptUpdate(context.get(), out.data(), &length, plaintext.data(),
                                              static_cast<int>(plaintext.size())) != 1)
    throw CryptoError::libraryFailure("EVP_EncryptUpdate");
  int finalLength = 0;
  if (EVP_EncryptFinal_ex(context.get(), out.data() + length, &finalLength) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, kChaCha20Poly1305TagSize,
                          out.data() + plaintext.size()) != 1)
    throw CryptoError::libraryFailure("EVP_EncryptFinal_ex");
  return out;
}

std::optional<Bytes> chaCha20Poly1305Open(ByteView key, ByteView nonce, ByteView sealed,
                                          ByteView associatedData) {
  if (sealed.size() < kChaCha20Poly1305TagSize) return std::nullopt;
  const size_t textSize = sealed.size() - kChaCha20Poly1305TagSize;
  CipherCtxPtr context = start(false, key, nonce, associatedData);
  Bytes out(textSize);
  int length = 0;
  if (textSize > 0 && EVP_DecryptUpdate(context.get(), out.data(), &length, sealed.data(),
                                        static_cast<int>(textSize)) != 1)
    throw CryptoError::libraryFailure("EVP_DecryptUpdate");
  Bytes tag(sealed.begin() + static_cast<ptrdiff_t>(textSize), sealed.end());
  if (EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, kChaCha20Poly1305TagSize,
                          tag.data()) != 1)
    throw CryptoError::libraryFailure("EVP_CTRL_AEAD_SET_TAG");
  int finalLength = 0;
  if (EVP_DecryptFinal_ex(context.get(), out.data() + length, &finalLength) != 1) {
    drainOpenSSLErrors();
    secureWipe(out);
    return std::nullopt;
  }
  return out;
}

}  // namespace quorvane::crypto
