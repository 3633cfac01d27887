#pragma once

#include <cstddef>
#include <memory>
#include <span>

#include "Base/Bytes.h"
#include "Crypto/Hash.h"

typedef struct evp_md_ctx_st EVP_MD_CTX;

namespace quorvane::crypto {

// HMAC (RFC 2104) under one key for many messages. The key is absorbed once, into an inner and an
// outer hash state, which each message then starts from, instead of being set up again per
// message as `hmac` does. Feed a message with `update`, take its MAC with `finish`, which also
// starts the next message. The states are as secret as the key; OpenSSL wipes them when the
// context dies. Not safe to share between threads. Throws CryptoError only if OpenSSL fails.
class HMACContext {
 public:
  HMACContext(HashAlgorithm algorithm, ByteView key);

  // The MAC length in bytes.
  size_t size() const { return size_; }

  void update(ByteView data);
  // Writes the MAC of everything fed since the last finish to `out`.
  // REQUIRES: out.size() == size().
  void finish(std::span<uint8_t> out);

 private:
  // Frees a hash state; defined where OpenSSL's headers are.
  struct Free {
    void operator()(EVP_MD_CTX* context) const;
  };
  using State = std::unique_ptr<EVP_MD_CTX, Free>;

  State inner_;    // the hash state after key XOR ipad
  State outer_;    // the hash state after key XOR opad
  State message_;  // the message being fed
  size_t size_ = 0;
};

}  // namespace quorvane::crypto
