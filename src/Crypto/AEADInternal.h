#pragma once

#include <openssl/evp.h>

#include <optional>

#include "Base/Bytes.h"

namespace quorvane::crypto {

// Sealing and opening with one of OpenSSL's AEAD ciphers (12-byte nonce, 16-byte tag appended):
// the common code of AES-GCM and ChaCha20-Poly1305. The callers check key and nonce sizes.
Bytes aeadSeal(const EVP_CIPHER* cipher, ByteView key, ByteView nonce, ByteView plaintext,
               ByteView associatedData);
std::optional<Bytes> aeadOpen(const EVP_CIPHER* cipher, ByteView key, ByteView nonce,
                              ByteView sealed, ByteView associatedData);

}  // namespace quorvane::crypto
