#pragma once

#include <cstddef>
#include <cstdint>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "Crypto/Hash.h"

namespace quorvane::crypto {

// PBKDF2 (RFC 8018 section 5.2) with HMAC over `hash` as the pseudorandom function.
// The work is `iterations` HMACs per hash-sized output block; callers bound `iterations`.
// REQUIRES: iterations >= 1 and outputLength >= 1. Throws CryptoError if OpenSSL fails.
SecureBytes pbkdf2(HashAlgorithm hash, ByteView password, ByteView salt, uint32_t iterations,
                   size_t outputLength);

}  // namespace quorvane::crypto
