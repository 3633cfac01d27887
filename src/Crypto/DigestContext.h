#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "Base/Bytes.h"
#include "Crypto/Hash.h"

typedef struct evp_md_ctx_st EVP_MD_CTX;
typedef struct evp_md_st EVP_MD;

namespace quorvane::crypto {

// A hash that computes many digests one after the other without setting OpenSSL up again for
// each: feed a message with `update`, take its digest with `finish`, which also starts the next
// message. For hot loops (hash chains); `digest` is simpler everywhere else. Not safe to share
// between threads. Throws CryptoError only if OpenSSL itself fails.
class DigestContext {
 public:
  explicit DigestContext(HashAlgorithm algorithm);

  // The digest length in bytes.
  size_t size() const { return size_; }

  void update(ByteView data);
  // Writes the digest of everything fed since the last finish to `out`.
  // REQUIRES: out.size() == size().
  void finish(std::span<uint8_t> out);

 private:
  void restart();

  // Frees OpenSSL's objects; defined where OpenSSL's headers are.
  struct Free {
    void operator()(EVP_MD* md) const;
    void operator()(EVP_MD_CTX* context) const;
  };

  std::unique_ptr<EVP_MD, Free> md_;
  std::unique_ptr<EVP_MD_CTX, Free> context_;
  size_t size_;
};

}  // namespace quorvane::crypto
