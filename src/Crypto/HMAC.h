#pragma once

#include "Base/Bytes.h"
#include "Crypto/Hash.h"

namespace quorvane::crypto {

// HMAC (RFC 2104) of `data` under `key`. Throws CryptoError only if OpenSSL itself fails.
Bytes hmac(HashAlgorithm algorithm, ByteView key, ByteView data);

inline Bytes hmacSHA256(ByteView key, ByteView data) {
  return hmac(HashAlgorithm::sha256, key, data);
}

}  // namespace quorvane::crypto
