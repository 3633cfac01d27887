#pragma once

// An owned OpenSSL cipher context and a one-shot run of a cipher over a buffer; for use inside the
// Crypto library.
#include <openssl/evp.h>

#include <memory>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {

using CipherCtxPtr = std::unique_ptr<EVP_CIPHER_CTX, OpenSSLDeleter<EVP_CIPHER_CTX_free>>;

// Decrypts (or, for a stream mode, transforms) `input` with `cipher`. With `padding` the final
// block's PKCS#7 padding is checked and removed. Nothing when OpenSSL refuses the input (a length
// that is not whole blocks, bad padding); throws CryptoError if OpenSSL fails otherwise.
// REQUIRES: key and iv have the cipher's lengths.
std::optional<SecureBytes> runDecryption(const EVP_CIPHER* cipher, ByteView key, ByteView iv,
                                         ByteView input, bool padding);

}  // namespace quorvane::crypto
