#pragma once

#include <cstddef>
#include <optional>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto {

// Block ciphers in CBC mode, as private key files use them.
enum class CBCCipher { aes128, aes192, aes256, tripleDES };

// Key lengths 16, 24, 32 and 24 bytes (three-key 3DES, EDE); the IV is one block: 16 bytes for
// AES, 8 for 3DES.
size_t keyLength(CBCCipher cipher);
size_t blockLength(CBCCipher cipher);

enum class CBCPadding { none, pkcs7 };

// Decrypts `ciphertext`; with pkcs7 the padding of the last block is checked and removed.
// Nothing when the ciphertext is not whole blocks (or empty with pkcs7) or the padding is wrong.
// REQUIRES: key and iv have the cipher's lengths. Throws CryptoError if OpenSSL fails.
std::optional<SecureBytes> cbcDecrypt(CBCCipher cipher, ByteView key, ByteView iv,
                                      ByteView ciphertext, CBCPadding padding);

}  // namespace quorvane::crypto
