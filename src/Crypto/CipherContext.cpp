#include "Crypto/CipherContext.h"

#include "Base/Check.h"
#include "Base/CryptoError.h"

namespace quorvane::crypto {

std::optional<SecureBytes> runDecryption(const EVP_CIPHER* cipher, ByteView key, ByteView iv,
                                         ByteView input, bool padding) {
  QUORVANE_CHECK(cipher != nullptr, "the cipher exists in OpenSSL");
  QUORVANE_CHECK(key.size() == static_cast<size_t>(EVP_CIPHER_get_key_length(cipher)),
                 "the key has the cipher's length");
  QUORVANE_CHECK(iv.size() == static_cast<size_t>(EVP_CIPHER_get_iv_length(cipher)),
                 "the IV has the cipher's length");
  CipherCtxPtr context(EVP_CIPHER_CTX_new());
  if (!context || EVP_DecryptInit_ex2(context.get(), cipher, key.data(), iv.data(), nullptr) != 1 ||
      EVP_CIPHER_CTX_set_padding(context.get(), padding ? 1 : 0) != 1)
    throw CryptoError::libraryFailure("EVP_DecryptInit_ex2");
  const size_t blockSize = static_cast<size_t>(EVP_CIPHER_CTX_get_block_size(context.get()));
  SecureBytes out(input.size() + blockSize);
  int length = 0, finalLength = 0;
  if (!input.empty() && EVP_DecryptUpdate(context.get(), out.data(), &length, input.data(),
                                          static_cast<int>(input.size())) != 1)
    throw CryptoError::libraryFailure("EVP_DecryptUpdate");
  if (EVP_DecryptFinal_ex(context.get(), out.data() + length, &finalLength) != 1) {
    drainOpenSSLErrors();
    return std::nullopt;
  }
  return SecureBytes(ByteView(out.data(), static_cast<size_t>(length + finalLength)));
}

}  // namespace quorvane::crypto
