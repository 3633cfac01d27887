#include "Crypto/HKDF.h"

#include <openssl/core_names.h>
#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <span>
#include <vector>

#include "Base/Check.h"
#include "Base/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {
namespace {

using MACCtxPtr = std::unique_ptr<EVP_MAC_CTX, OpenSSLDeleter<EVP_MAC_CTX_free>>;

// An HMAC-SHA256 context without a key, made once; every computation starts from a copy, which
// saves fetching HMAC and SHA-256 again each time.
const EVP_MAC_CTX* hmacTemplate() {
  static EVP_MAC_CTX* const kTemplate = [] {
    EVP_MAC* mac = EVP_MAC_fetch(nullptr, "HMAC", nullptr);
    EVP_MAC_CTX* context = mac != nullptr ? EVP_MAC_CTX_new(mac) : nullptr;
    EVP_MAC_free(mac);
    char digestName[] = "SHA256";
    OSSL_PARAM params[] = {OSSL_PARAM_construct_utf8_string(OSSL_MAC_PARAM_DIGEST, digestName, 0),
                           OSSL_PARAM_construct_end()};
    if (context != nullptr && EVP_MAC_CTX_set_params(context, params) != 1) {
      EVP_MAC_CTX_free(context);
      context = nullptr;
    }
    return context;
  }();
  if (kTemplate == nullptr) throw CryptoError::libraryFailure("HMAC-SHA256 setup");
  return kTemplate;
}

// HMAC-SHA256(key, concatenation of the parts) into the 32 bytes at `out`. Freeing the context
// wipes its copy of the key and its hash state.
void hmacInto(ByteView key, std::span<const ByteView> parts, uint8_t* out) {
  MACCtxPtr context(EVP_MAC_CTX_dup(hmacTemplate()));
  // A null key would mean "keep the previous key"; an empty key needs a real pointer.
  static const uint8_t kEmptyKey = 0;
  if (!context ||
      EVP_MAC_init(context.get(), key.empty() ? &kEmptyKey : key.data(), key.size(), nullptr) != 1)
    throw CryptoError::libraryFailure("EVP_MAC_init(HMAC)");
  for (ByteView part : parts) {
    if (!part.empty() && EVP_MAC_update(context.get(), part.data(), part.size()) != 1)
      throw CryptoError::libraryFailure("EVP_MAC_update(HMAC)");
  }
  size_t written = 0;
  if (EVP_MAC_final(context.get(), out, &written, kHKDFSHA256Size) != 1 ||
      written != kHKDFSHA256Size)
    throw CryptoError::libraryFailure("EVP_MAC_final(HMAC)");
}

}  // namespace

SecureBytes hkdfSHA256Extract(ByteView salt, std::initializer_list<ByteView> ikmParts) {
  SecureBytes prk(kHKDFSHA256Size);
  hmacInto(salt, std::span(ikmParts.begin(), ikmParts.size()), prk.data());
  return prk;
}

SecureBytes hkdfSHA256Expand(ByteView prk, std::initializer_list<ByteView> infoParts,
                             size_t length) {
  QUORVANE_CHECK(length <= kHKDFSHA256MaximumLength, "HKDF output is at most 255 blocks");
  SecureBytes out(length);
  SecureBytes block(kHKDFSHA256Size);  // T(i) = HMAC(PRK, T(i-1) || info || i), T(0) empty
  uint8_t counter = 0;
  std::vector<ByteView> parts;
  parts.reserve(infoParts.size() + 2);
  for (size_t done = 0; done < length; done += kHKDFSHA256Size) {
    ++counter;
    parts.clear();
    if (counter > 1) parts.push_back(block.view());
    parts.insert(parts.end(), infoParts.begin(), infoParts.end());
    parts.push_back(ByteView(&counter, 1));
    hmacInto(prk, parts, block.data());  // reads T(i-1) fully before writing T(i)
    std::copy_n(block.data(), std::min(kHKDFSHA256Size, length - done), out.data() + done);
  }
  return out;
}

}  // namespace quorvane::crypto
