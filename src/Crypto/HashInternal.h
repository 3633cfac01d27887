#pragma once

#include <openssl/evp.h>

#include "Crypto/Hash.h"

namespace quorvane::crypto {

// OpenSSL's descriptor of a hash; for use inside the Crypto library.
const EVP_MD* evpDigest(HashAlgorithm algorithm);

}  // namespace quorvane::crypto
