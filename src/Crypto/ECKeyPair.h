#pragma once

#include <openssl/ec.h>

#include "Crypto/OpenSSLHandles.h"

namespace quorvane {

// An EC key pair on `group` (named `groupName` for OpenSSL: "P-256", "P-384", "P-521") from a
// private scalar that the caller checked to lie in [1, n-1]. The public point is computed here,
// as OpenSSL does not derive it on import. Throws CryptoError when OpenSSL fails.
EVPPKeyPtr ecKeyPairFromScalar(const EC_GROUP* group, const char* groupName, const BIGNUM* scalar);

}  // namespace quorvane
