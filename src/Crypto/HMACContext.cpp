#include "Crypto/HMACContext.h"

#include <openssl/evp.h>

#include <algorithm>

#include "Base/Check.h"
#include "Base/CryptoError.h"
#include "Base/SecureBytes.h"
#include "Crypto/HashInternal.h"

namespace quorvane::crypto {

namespace {

constexpr uint8_t kInnerPad = 0x36;
constexpr uint8_t kOuterPad = 0x5c;

void require(int result, const char* operation) {
  if (result != 1) throw CryptoError::libraryFailure(operation);
}

}  // namespace

HMACContext::HMACContext(HashAlgorithm algorithm, ByteView key)
    : inner_(EVP_MD_CTX_new()), outer_(EVP_MD_CTX_new()), message_(EVP_MD_CTX_new()) {
  if (!inner_ || !outer_ || !message_) throw CryptoError::libraryFailure("EVP_MD_CTX_new");
  const EVP_MD* md = evpDigest(algorithm);
  size_ = static_cast<size_t>(EVP_MD_get_size(md));
  size_t blockSize = static_cast<size_t>(EVP_MD_get_block_size(md));

  // A key longer than a block is replaced by its hash; the block is the key padded with zeros.
  SecureBytes block(blockSize);
  if (key.size() > blockSize) {
    Bytes hashed = digest(algorithm, key);
    std::copy(hashed.begin(), hashed.end(), block.data());
    secureWipe(hashed);
  } else {
    std::copy(key.begin(), key.end(), block.data());
  }
  SecureBytes padded(blockSize);
  for (auto [state, pad] :
       {std::pair(inner_.get(), kInnerPad), std::pair(outer_.get(), kOuterPad)}) {
    for (size_t i = 0; i < blockSize; ++i) padded.data()[i] = block.data()[i] ^ pad;
    require(EVP_DigestInit_ex(state, md, nullptr), "EVP_DigestInit_ex");
    require(EVP_DigestUpdate(state, padded.data(), blockSize), "EVP_DigestUpdate");
  }
  require(EVP_MD_CTX_copy_ex(message_.get(), inner_.get()), "EVP_MD_CTX_copy_ex");
}

void HMACContext::Free::operator()(EVP_MD_CTX* context) const { EVP_MD_CTX_free(context); }

void HMACContext::update(ByteView data) {
  require(EVP_DigestUpdate(message_.get(), data.data(), data.size()), "EVP_DigestUpdate");
}

void HMACContext::finish(std::span<uint8_t> out) {
  QUORVANE_CHECK(out.size() == size_, "the output must have the MAC's length");
  uint8_t innerHash[EVP_MAX_MD_SIZE];
  require(EVP_DigestFinal_ex(message_.get(), innerHash, nullptr), "EVP_DigestFinal_ex");
  require(EVP_MD_CTX_copy_ex(message_.get(), outer_.get()), "EVP_MD_CTX_copy_ex");
  require(EVP_DigestUpdate(message_.get(), innerHash, size_), "EVP_DigestUpdate");
  require(EVP_DigestFinal_ex(message_.get(), out.data(), nullptr), "EVP_DigestFinal_ex");
  require(EVP_MD_CTX_copy_ex(message_.get(), inner_.get()), "EVP_MD_CTX_copy_ex");
}

}  // namespace quorvane::crypto
