#pragma once

#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/evp.h>
#include <openssl/param_build.h>

#include <memory>
#include <string>

#include "Base/OpenSSLErrors.h"

namespace quorvane {

// Owning handles for the OpenSSL objects this project uses; each frees its object with the
// matching OpenSSL function.
template <auto FreeFunction>
struct OpenSSLDeleter {
  template <typename T>
  void operator()(T* object) const {
    FreeFunction(object);
  }
};

using EVPPKeyPtr = std::unique_ptr<EVP_PKEY, OpenSSLDeleter<EVP_PKEY_free>>;
using EVPPKeyCtxPtr = std::unique_ptr<EVP_PKEY_CTX, OpenSSLDeleter<EVP_PKEY_CTX_free>>;
using EVPMDCtxPtr = std::unique_ptr<EVP_MD_CTX, OpenSSLDeleter<EVP_MD_CTX_free>>;
using BIGNUMPtr = std::unique_ptr<BIGNUM, OpenSSLDeleter<BN_free>>;
using ECDSASigPtr = std::unique_ptr<ECDSA_SIG, OpenSSLDeleter<ECDSA_SIG_free>>;
using ParamBuildPtr = std::unique_ptr<OSSL_PARAM_BLD, OpenSSLDeleter<OSSL_PARAM_BLD_free>>;
using ParamsPtr = std::unique_ptr<OSSL_PARAM, OpenSSLDeleter<OSSL_PARAM_free>>;
using ECGroupPtr = std::unique_ptr<EC_GROUP, OpenSSLDeleter<EC_GROUP_free>>;
using ECPointPtr = std::unique_ptr<EC_POINT, OpenSSLDeleter<EC_POINT_free>>;
// A BIGNUM that holds a secret: cleared before it is freed.
using SecretBIGNUMPtr = std::unique_ptr<BIGNUM, OpenSSLDeleter<BN_clear_free>>;
using BNCtxPtr = std::unique_ptr<BN_CTX, OpenSSLDeleter<BN_CTX_free>>;

}  // namespace quorvane
