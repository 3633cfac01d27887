#pragma once

#include <optional>

#include "Base/Bytes.h"

namespace quorvane::crypto {

// ChaCha20-Poly1305 (RFC 8439): a 32-byte key, a 12-byte nonce and a 16-byte tag appended to the
// ciphertext. Raw primitives for protocols that derive their own nonces (HPKE).
inline constexpr size_t kChaCha20Poly1305KeySize = 32;
inline constexpr size_t kChaCha20Poly1305NonceSize = 12;
inline constexpr size_t kChaCha20Poly1305TagSize = 16;

// ciphertext || tag. Wrong key or nonce sizes stop the process; throws CryptoError only if OpenSSL
// itself fails.
Bytes chaCha20Poly1305Seal(ByteView key, ByteView nonce, ByteView plaintext,
                           ByteView associatedData);

// The plaintext, or nothing when `sealed` is shorter than a tag or does not authenticate.
std::optional<Bytes> chaCha20Poly1305Open(ByteView key, ByteView nonce, ByteView sealed,
                                          ByteView associatedData);

}  // namespace quorvane::crypto
