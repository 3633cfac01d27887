#pragma once

#include "Base/Bytes.h"

namespace quorvane::crypto {

enum class HashAlgorithm { sha1, sha256, sha384, sha512 };

// The digest of `data`. Throws CryptoError only if OpenSSL itself fails.
Bytes digest(HashAlgorithm algorithm, ByteView data);

inline Bytes sha1(ByteView data) { return digest(HashAlgorithm::sha1, data); }
inline Bytes sha256(ByteView data) { return digest(HashAlgorithm::sha256, data); }
inline Bytes sha384(ByteView data) { return digest(HashAlgorithm::sha384, data); }
inline Bytes sha512(ByteView data) { return digest(HashAlgorithm::sha512, data); }

}  // namespace quorvane::crypto
