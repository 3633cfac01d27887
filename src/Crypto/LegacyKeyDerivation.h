#pragma once

#include <cstddef>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::crypto {

// The key derivation of OpenSSL's traditional encrypted PEM files (EVP_BytesToKey with MD5 and one
// iteration): D1 = MD5(password || salt), Di = MD5(Di-1 || password || salt), concatenated and cut
// to `keyLength` bytes. The salt is the first 8 bytes of the file's IV. Weak by design; used only
// to read such files. Throws CryptoError if OpenSSL fails (for example without MD5).
SecureBytes legacyPEMKey(ByteView password, ByteView salt, size_t keyLength);

}  // namespace quorvane::crypto
