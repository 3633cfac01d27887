#pragma once

#include <cstddef>
#include <initializer_list>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto {

// HKDF with SHA-256 (RFC 5869) in its two halves, for protocols that label their inputs (HPKE).
// The inputs are given in parts that are hashed as their concatenation, so that a secret never has
// to be copied next to its label. Both throw CryptoError only if OpenSSL itself fails.
inline constexpr size_t kHKDFSHA256Size = 32;
inline constexpr size_t kHKDFSHA256MaximumLength = 255 * kHKDFSHA256Size;

// The pseudorandom key HMAC-SHA256(salt, ikm); an empty salt is the same as 32 zero bytes.
SecureBytes hkdfSHA256Extract(ByteView salt, std::initializer_list<ByteView> ikmParts);

// `length` bytes of output keyed by `prk`. REQUIRES: length <= kHKDFSHA256MaximumLength.
SecureBytes hkdfSHA256Expand(ByteView prk, std::initializer_list<ByteView> infoParts,
                             size_t length);

}  // namespace quorvane::crypto
