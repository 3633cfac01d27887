#pragma once

#include <optional>

#include "Base/Bytes.h"

namespace quorvane::crypto {

// AES-GCM with a 12-byte nonce and a 16-byte tag appended to the ciphertext. The key is 16 or 32
// bytes. These are the raw primitives for protocols that derive their own nonces (HPKE, OpenSSH
// key files); callers that only need to encrypt something should not pick nonces by hand.
inline constexpr size_t kAESGCMNonceSize = 12;
inline constexpr size_t kAESGCMTagSize = 16;

// ciphertext || tag. Programmer errors (wrong key or nonce size) stop the process; throws
// CryptoError only if OpenSSL itself fails.
Bytes aesGCMSeal(ByteView key, ByteView nonce, ByteView plaintext, ByteView associatedData);

// The plaintext, or nothing when `sealed` is shorter than a tag or does not authenticate.
std::optional<Bytes> aesGCMOpen(ByteView key, ByteView nonce, ByteView sealed,
                                ByteView associatedData);

}  // namespace quorvane::crypto
