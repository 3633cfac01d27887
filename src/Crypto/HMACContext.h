#pragma once

#include <cstddef>
#include <span>

#include "Crypto/Bytes.h"
#include "Crypto/Hash.h"

typedef struct evp_mac_ctx_st EVP_MAC_CTX;

namespace quorvane::crypto {

// HMAC (RFC 2104) under one key for many messages: the key schedule is done once, when the context
// is made, instead of once per message as `hmac` does. Feed a message with `update`, take its MAC
// with `finish`, which also starts the next message. OpenSSL keeps the key and wipes it when the
// context dies. Not safe to share between threads. Throws CryptoError only if OpenSSL fails.
class HMACContext {
 public:
  HMACContext(HashAlgorithm algorithm, ByteView key);
  ~HMACContext();
  HMACContext(const HMACContext&) = delete;
  HMACContext& operator=(const HMACContext&) = delete;

  // The MAC length in bytes.
  size_t size() const { return size_; }

  void update(ByteView data);
  // Writes the MAC of everything fed since the last finish to `out`.
  // REQUIRES: out.size() == size().
  void finish(std::span<uint8_t> out);

 private:
  EVP_MAC_CTX* context_;
  size_t size_;
};

}  // namespace quorvane::crypto
