#include "Crypto/HMAC.h"

#include <openssl/hmac.h>

#include "Base/CryptoError.h"
#include "Crypto/HashInternal.h"

namespace quorvane::crypto {

Bytes hmac(HashAlgorithm algorithm, ByteView key, ByteView data) {
  Bytes out(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  // HMAC() treats a null key as "reuse the previous one", so an empty key needs a real pointer.
  static const uint8_t kEmptyKey = 0;
  const uint8_t* keyBytes = key.empty() ? &kEmptyKey : key.data();
  if (HMAC(evpDigest(algorithm), keyBytes, static_cast<int>(key.size()), data.data(), data.size(),
           out.data(), &length) == nullptr)
    throw CryptoError::libraryFailure("HMAC");
  out.resize(length);
  return out;
}

}  // namespace quorvane::crypto
