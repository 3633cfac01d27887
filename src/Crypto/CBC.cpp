#include "Crypto/CBC.h"

#include "Crypto/CipherContext.h"

namespace quorvane::crypto {
namespace {

const EVP_CIPHER* evpCipher(CBCCipher cipher) {
  switch (cipher) {
    case CBCCipher::aes128: return EVP_aes_128_cbc();
    case CBCCipher::aes192: return EVP_aes_192_cbc();
    case CBCCipher::aes256: return EVP_aes_256_cbc();
    case CBCCipher::tripleDES: return EVP_des_ede3_cbc();
  }
  return nullptr;
}

}  // namespace

size_t keyLength(CBCCipher cipher) {
  switch (cipher) {
    case CBCCipher::aes128: return 16;
    case CBCCipher::aes192: return 24;
    case CBCCipher::aes256: return 32;
    case CBCCipher::tripleDES: return 24;
  }
  return 0;
}

size_t blockLength(CBCCipher cipher) { return cipher == CBCCipher::tripleDES ? 8 : 16; }

std::optional<SecureBytes> cbcDecrypt(CBCCipher cipher, ByteView key, ByteView iv,
                                      ByteView ciphertext, CBCPadding padding) {
  if (ciphertext.size() % blockLength(cipher) != 0) return std::nullopt;
  if (padding == CBCPadding::pkcs7 && ciphertext.empty()) return std::nullopt;
  return runDecryption(evpCipher(cipher), key, iv, ciphertext, padding == CBCPadding::pkcs7);
}

}  // namespace quorvane::crypto
