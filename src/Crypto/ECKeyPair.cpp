#include "Crypto/ECKeyPair.h"

#include <openssl/core_names.h>

#include "Base/Bytes.h"
#include "Base/CryptoError.h"

namespace quorvane {

EVPPKeyPtr ecKeyPairFromScalar(const EC_GROUP* group, const char* groupName, const BIGNUM* scalar) {
  BNCtxPtr bnContext(BN_CTX_new());
  ECPointPtr point(EC_POINT_new(group));
  if (!bnContext || !point ||
      EC_POINT_mul(group, point.get(), scalar, nullptr, nullptr, bnContext.get()) != 1)
    throw CryptoError::libraryFailure("EC_POINT_mul");
  const size_t encodedLength = EC_POINT_point2oct(group, point.get(), POINT_CONVERSION_UNCOMPRESSED,
                                                  nullptr, 0, bnContext.get());
  Bytes encodedPoint(encodedLength);
  if (encodedLength == 0 ||
      EC_POINT_point2oct(group, point.get(), POINT_CONVERSION_UNCOMPRESSED, encodedPoint.data(),
                         encodedPoint.size(), bnContext.get()) != encodedLength)
    throw CryptoError::libraryFailure("EC_POINT_point2oct");

  ParamBuildPtr builder(OSSL_PARAM_BLD_new());
  if (!builder ||
      OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, groupName, 0) !=
          1 ||
      OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_PRIV_KEY, scalar) != 1 ||
      OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, encodedPoint.data(),
                                       encodedPoint.size()) != 1)
    throw CryptoError::libraryFailure("OSSL_PARAM_BLD");
  ParamsPtr params(OSSL_PARAM_BLD_to_param(builder.get()));
  EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, "EC", nullptr));
  EVP_PKEY* key = nullptr;
  if (!params || !context || EVP_PKEY_fromdata_init(context.get()) != 1 ||
      EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_KEYPAIR, params.get()) != 1)
    throw CryptoError::libraryFailure("EVP_PKEY_fromdata");
  return EVPPKeyPtr(key);
}

}  // namespace quorvane
