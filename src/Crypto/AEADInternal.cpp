#include "Crypto/AEADInternal.h"

#include <memory>

#include "Base/CryptoError.h"
#include "Base/SecureBytes.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {
namespace {

constexpr int kTagSize = 16;

using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, OpenSSLDeleter<EVP_CIPHER_CTX_free>>;

// Sets up a context for one message and feeds the associated data.
CipherCtxPtr start(const EVP_CIPHER* cipher, bool encrypt, ByteView key, ByteView nonce,
                   ByteView associatedData) {
  CipherCtxPtr context(EVP_CIPHER_CTX_new());
  if (!context || EVP_CipherInit_ex(context.get(), cipher, nullptr, key.data(), nonce.data(),
                                    encrypt ? 1 : 0) != 1)
    throw CryptoError::libraryFailure("EVP_CipherInit_ex");
  int length = 0;
  if (!associatedData.empty() &&
      EVP_CipherUpdate(context.get(), nullptr, &length, associatedData.data(),
                       static_cast<int>(associatedData.size())) != 1)
    throw CryptoError::libraryFailure("EVP_CipherUpdate(aad)");
  return context;
}

}  // namespace

Bytes aeadSeal(const EVP_CIPHER* cipher, ByteView key, ByteView nonce, ByteView plaintext,
               ByteView associatedData) {
  CipherCtxPtr context = start(cipher, true, key, nonce, associatedData);
  Bytes out(plaintext.size() + kTagSize);
  int length = 0;
  if (!plaintext.empty() && EVP_EncryptUpdate(context.get(), out.data(), &length, plaintext.data(),
                                              static_cast<int>(plaintext.size())) != 1)
    throw CryptoError::libraryFailure("EVP_EncryptUpdate");
  int finalLength = 0;
  if (EVP_EncryptFinal_ex(context.get(), out.data() + length, &finalLength) != 1 ||
      EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_GET_TAG, kTagSize,
                          out.data() + plaintext.size()) != 1)
    throw CryptoError::libraryFailure("EVP_EncryptFinal_ex");
  return out;
}

std::optional<Bytes> aeadOpen(const EVP_CIPHER* cipher, ByteView key, ByteView nonce,
                              ByteView sealed, ByteView associatedData) {
  if (sealed.size() < kTagSize) return std::nullopt;
  const size_t textSize = sealed.size() - kTagSize;
  CipherCtxPtr context = start(cipher, false, key, nonce, associatedData);
  Bytes out(textSize);
  int length = 0;
  if (textSize > 0 && EVP_DecryptUpdate(context.get(), out.data(), &length, sealed.data(),
                                        static_cast<int>(textSize)) != 1)
    throw CryptoError::libraryFailure("EVP_DecryptUpdate");
  Bytes tag(sealed.begin() + static_cast<ptrdiff_t>(textSize), sealed.end());
  if (EVP_CIPHER_CTX_ctrl(context.get(), EVP_CTRL_AEAD_SET_TAG, kTagSize, tag.data()) != 1)
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
