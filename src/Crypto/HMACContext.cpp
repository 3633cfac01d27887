#include "Crypto/HMACContext.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>

#include "Crypto/Check.h"
#include "Crypto/CryptoError.h"
#include "Crypto/HashInternal.h"

namespace quorvane::crypto {

HMACContext::HMACContext(HashAlgorithm algorithm, ByteView key) : context_(nullptr), size_(0) {
  EVP_MAC* mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
  if (mac == nullptr) throw CryptoError::libraryFailure("EVP_MAC_fetch");
  context_ = EVP_MAC_CTX_new(mac);
  EVP_MAC_free(mac);  // the context holds its own reference
  if (context_ == nullptr) throw CryptoError::libraryFailure("EVP_MAC_CTX_new");

  const EVP_MD* md = evpDigest(algorithm);
  OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(
                             OSSL_MAC_PARAM_DIGEST, const_cast<char*>(EVP_MD_get0_name(md)), 0),
                         OSSL_PARAM_construct_end()};
  // A null key pointer would mean "keep the previous key", so an empty key needs a real pointer.
  static const uint8_t kEmptyKey = 0;
  if (EVP_MAC_init(context_, key.empty() ? &kEmptyKey : key.data(), key.size(), params) != 1) {
    EVP_MAC_CTX_free(context_);
    throw CryptoError::libraryFailure("EVP_MAC_init");
  }
  size_ = static_cast<size_t>(EVP_MD_get_size(md));
}

HMACContext::~HMACContext() { EVP_MAC_CTX_free(context_); }

void HMACContext::update(ByteView data) {
  if (EVP_MAC_update(context_, data.data(), data.size()) != 1)
    throw CryptoError::libraryFailure("EVP_MAC_update");
}

void HMACContext::finish(std::span<uint8_t> out) {
  QUORVANE_CHECK(out.size() == size_, "the output must have the MAC's length");
  size_t written = 0;
  if (EVP_MAC_final(context_, out.data(), &written, out.size()) != 1)
    throw CryptoError::libraryFailure("EVP_MAC_final");
  // Initialising without a key starts the next message under the key already set.
  if (EVP_MAC_init(context_, nullptr, 0, nullptr) != 1)
    throw CryptoError::libraryFailure("EVP_MAC_init");
}

}  // namespace quorvane::crypto
