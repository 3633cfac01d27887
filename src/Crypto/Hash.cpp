#include "Crypto/Hash.h"

#include <openssl/evp.h>

#include "Base/CryptoError.h"
#include "Crypto/HashInternal.h"

namespace quorvane::crypto {

// Fetched once and kept: OpenSSL 3 looks the digests that EVP_sha256() and its kin name up in
// its provider tables again at every use, which costs as much as hashing a short message.
const EVP_MD* evpDigest(HashAlgorithm algorithm) {
  static const EVP_MD* const kSHA1 = EVP_MD_fetch(nullptr, "SHA1", nullptr);
  static const EVP_MD* const kSHA256 = EVP_MD_fetch(nullptr, "SHA256", nullptr);
  static const EVP_MD* const kSHA384 = EVP_MD_fetch(nullptr, "SHA384", nullptr);
  static const EVP_MD* const kSHA512 = EVP_MD_fetch(nullptr, "SHA512", nullptr);
  switch (algorithm) {
    case HashAlgorithm::sha1: return kSHA1;
    case HashAlgorithm::sha256: return kSHA256;
    case HashAlgorithm::sha384: return kSHA384;
    case HashAlgorithm::sha512: return kSHA512;
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
