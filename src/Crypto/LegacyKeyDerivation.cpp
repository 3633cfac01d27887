#include "Crypto/LegacyKeyDerivation.h"

#include <openssl/evp.h>

#include <algorithm>

#include "Base/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {

SecureBytes legacyPEMKey(ByteView password, ByteView salt, size_t keyLength) {
  constexpr size_t kMD5Size = 16;
  SecureBytes key(keyLength);
  SecureBytes previous(kMD5Size);
  EVPMDCtxPtr context(EVP_MD_CTX_new());
  if (!context) throw CryptoError::libraryFailure("EVP_MD_CTX_new");
  for (size_t filled = 0, round = 0; filled < keyLength; ++round) {
    unsigned int length = 0;
    if (EVP_DigestInit_ex2(context.get(), EVP_md5(), nullptr) != 1 ||
        (round > 0 && EVP_DigestUpdate(context.get(), previous.data(), kMD5Size) != 1) ||
        EVP_DigestUpdate(context.get(), password.data(), password.size()) != 1 ||
        EVP_DigestUpdate(context.get(), salt.data(), salt.size()) != 1 ||
        EVP_DigestFinal_ex(context.get(), previous.data(), &length) != 1 || length != kMD5Size)
      throw CryptoError::libraryFailure("MD5");
    const size_t take = std::min(kMD5Size, keyLength - filled);
    std::copy_n(previous.data(), take, key.data() + filled);
    filled += take;
  }
  return key;
}

}  // namespace quorvane::crypto
