#include "Crypto/SHA3.h"

#include <openssl/evp.h>

#include "Base/Check.h"
#include "Base/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {
namespace {

// Fetched once: an explicit fetch avoids OpenSSL's per-call implicit lookup, which would cost more
// than hashing the short inputs that ML-KEM hashes many times.
const EVP_MD* fetched(SHA3Function function) {
  static const EVP_MD* const kSHA3_256 = EVP_MD_fetch(nullptr, "SHA3-256", nullptr);
  static const EVP_MD* const kSHA3_512 = EVP_MD_fetch(nullptr, "SHA3-512", nullptr);
  static const EVP_MD* const kSHAKE128 = EVP_MD_fetch(nullptr, "SHAKE-128", nullptr);
  static const EVP_MD* const kSHAKE256 = EVP_MD_fetch(nullptr, "SHAKE-256", nullptr);
  const EVP_MD* md = nullptr;
  switch (function) {
    case SHA3Function::sha3_256: md = kSHA3_256; break;
    case SHA3Function::sha3_512: md = kSHA3_512; break;
    case SHA3Function::shake128: md = kSHAKE128; break;
    case SHA3Function::shake256: md = kSHAKE256; break;
  }
  if (md == nullptr) throw CryptoError::libraryFailure("EVP_MD_fetch(SHA-3)");
  return md;
}

}  // namespace

void sha3(SHA3Function function, std::initializer_list<ByteView> parts, std::span<uint8_t> out) {
  const bool extendable = function == SHA3Function::shake128 || function == SHA3Function::shake256;
  QUORVANE_CHECK(extendable || out.size() == (function == SHA3Function::sha3_256 ? 32u : 64u),
                 "SHA3-256 and SHA3-512 have fixed output sizes");
  // A context of its own each time: freeing it wipes the Keccak state, which could give back a
  // short secret input (the permutation is invertible).
  EVPMDCtxPtr context(EVP_MD_CTX_new());
  if (!context || EVP_DigestInit_ex(context.get(), fetched(function), nullptr) != 1)
    throw CryptoError::libraryFailure("EVP_DigestInit_ex(SHA-3)");
  for (ByteView part : parts) {
    if (!part.empty() && EVP_DigestUpdate(context.get(), part.data(), part.size()) != 1)
      throw CryptoError::libraryFailure("EVP_DigestUpdate(SHA-3)");
  }
  const int finished = extendable ? EVP_DigestFinalXOF(context.get(), out.data(), out.size())
                                  : EVP_DigestFinal_ex(context.get(), out.data(), nullptr);
  if (finished != 1) throw CryptoError::libraryFailure("EVP_DigestFinal(SHA-3)");
}

}  // namespace quorvane::crypto
