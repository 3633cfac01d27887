#pragma once

#include <openssl/evp.h>

#include "Crypto/Hash.h"

namespace quorvane::crypto {

// OpenSSL's descriptor of a hash, fetched once for the process; for code that calls OpenSSL
// directly (inside the Crypto library, and signing with OpenSSL keys).
const EVP_MD* evpDigest(HashAlgorithm algorithm);

}  // namespace quorvane::crypto
