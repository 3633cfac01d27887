#include "Crypto/DigestContext.h"

#include <openssl/evp.h>

#include "Base/Check.h"
#include "Base/CryptoError.h"

namespace quorvane::crypto {

namespace {

const char* digestName(HashAlgorithm algorithm) {
  switch (algorithm) {
    case HashAlgorithm::sha1: return "SHA1";
    case HashAlgorithm::sha256: return "SHA256";
    case HashAlgorithm::sha384: return "SHA384";
    case HashAlgorithm::sha512: return "SHA512";
  }
  return "SHA256";
}

}  // namespace

DigestContext::DigestContext(HashAlgorithm algorithm)
    // An explicitly fetched digest spares OpenSSL the provider lookup on every message.
    : md_(EVP_MD_fetch(nullptr, digestName(algorithm), nullptr)), context_(EVP_MD_CTX_new()) {
  if (md_ == nullptr || context_ == nullptr) throw CryptoError::libraryFailure("EVP_MD_fetch");
  size_ = static_cast<size_t>(EVP_MD_get_size(md_.get()));
  restart();
}

void DigestContext::Free::operator()(EVP_MD* md) const { EVP_MD_free(md); }
void DigestContext::Free::operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }

void DigestContext::restart() {
  if (EVP_DigestInit_ex(context_.get(), md_.get(), nullptr) != 1)
    throw CryptoError::libraryFailure("EVP_DigestInit_ex");
}

void DigestContext::update(ByteView data) {
  if (EVP_DigestUpdate(context_.get(), data.data(), data.size()) != 1)
    throw CryptoError::libraryFailure("EVP_DigestUpdate");
}

void DigestContext::finish(std::span<uint8_t> out) {
  QUORVANE_CHECK(out.size() == size_, "the output must have the digest's length");
  if (EVP_DigestFinal_ex(context_.get(), out.data(), nullptr) != 1)
    throw CryptoError::libraryFailure("EVP_DigestFinal_ex");
  restart();
}

}  // namespace quorvane::crypto
