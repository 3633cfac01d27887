#include "Crypto/AESCTR.h"

#include "Base/Check.h"
#include "Base/CryptoError.h"
#include "Crypto/CipherContext.h"

namespace quorvane::crypto {

SecureBytes aesCTR(ByteView key, ByteView counter, ByteView input) {
  QUORVANE_CHECK(key.size() == 16 || key.size() == 24 || key.size() == 32,
                 "AES keys are 16, 24 or 32 bytes");
  const EVP_CIPHER* cipher = key.size() == 16   ? EVP_aes_128_ctr()
                             : key.size() == 24 ? EVP_aes_192_ctr()
                                                : EVP_aes_256_ctr();
  auto out = runDecryption(cipher, key, counter, input, false);
  if (!out) throw CryptoError::libraryFailure("AES-CTR");
  return std::move(*out);
}

}  // namespace quorvane::crypto
