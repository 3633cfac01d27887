#pragma once

#include <cstddef>
#include <span>

#include "Base/Bytes.h"

namespace quorvane::crypto {

// Fills `out` from OpenSSL's CSPRNG. Throws CryptoError if the generator fails.
void fillRandom(std::span<uint8_t> out);

// `count` random bytes from OpenSSL's CSPRNG. Throws CryptoError if the generator fails.
Bytes randomBytes(size_t count);

}  // namespace quorvane::crypto
