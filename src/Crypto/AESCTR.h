#pragma once

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto {

// AES in counter mode (NIST SP 800-38A): `counter` is the first 16-byte counter block, incremented
// as one big-endian 128-bit number. Encryption and decryption are the same operation; the result
// is returned as secret bytes since it is usually a decrypted private key.
// REQUIRES: key is 16, 24 or 32 bytes; counter is 16 bytes. Throws CryptoError if OpenSSL fails.
SecureBytes aesCTR(ByteView key, ByteView counter, ByteView input);

}  // namespace quorvane::crypto
