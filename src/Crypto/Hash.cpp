#include "Crypto/Hash.h"

#include <openssl/evp.h>

#include "Base/CryptoError.h"
#include "Crypto/HashInternal.h"

namespace quorvane::crypto {

const EVP_MD* evpDigest(HashAlgorithm algorithm) {
  switch (algorithm) {
    case HashAlgorithm::sha1: return EVP_sha1();
    case HashAlgorithm::sha256: return EVP_sha256();
    case HashAlgorithm::sha384: return EVP_sha384();
    case HashAlgorithm::sha512: return EVP_sha512();
  }
  return nullptr;
}

Bytes digest(HashAlgorithm algorithm, ByteView data) {
  Bytes out(EVP_MAX_MD_SIZE);
  unsigned int length = 0;
  if (EVP_Digest(data.data(), data.size(), out.data(), &length, evpDigest(algorithm), nullptr) != 1)
    throw CryptoError::libraryFailure("EVP_Digest");
  out.resize(length);
  return out;
}

}  // namespace quorvane::crypto
