#pragma once

#include <initializer_list>
#include <span>

#include "Base/Bytes.h"

namespace quorvane::crypto {

// The SHA-3 family (FIPS 202).
enum class SHA3Function { sha3_256, sha3_512, shake128, shake256 };

// Hashes the concatenation of `parts` into `out`. `out` must be 32 bytes for SHA3-256 and 64 for
// SHA3-512 (a different size stops the process); SHAKE writes any number of bytes, and a longer
// output starts with every shorter one. Taking the input in parts lets callers hash secrets that
// sit in different buffers without copying them together. Throws CryptoError only if OpenSSL
// itself fails.
void sha3(SHA3Function function, std::initializer_list<ByteView> parts, std::span<uint8_t> out);

inline Bytes sha3_256(ByteView data) {
  Bytes out(32);
  sha3(SHA3Function::sha3_256, {data}, out);
  return out;
}

}  // namespace quorvane::crypto
