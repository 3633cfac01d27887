#include "Crypto/SignatureVerification.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/rsa.h>

#include "Base/CryptoError.h"
#include "Crypto/HashInternal.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane::crypto {

namespace {

const char* groupName(EllipticCurve curve) {
  switch (curve) {
    case EllipticCurve::p256: return "P-256";
    case EllipticCurve::p384: return "P-384";
    case EllipticCurve::p521: return "P-521";
  }
  return "";
}

HashAlgorithm curveHash(EllipticCurve curve) {
  switch (curve) {
    case EllipticCurve::p256: return HashAlgorithm::sha256;
    case EllipticCurve::p384: return HashAlgorithm::sha384;
    case EllipticCurve::p521: return HashAlgorithm::sha512;
  }
  return HashAlgorithm::sha512;
}

BIGNUMPtr bignumFrom(ByteView bytes) {
  BIGNUMPtr number(BN_bin2bn(bytes.data(), static_cast<int>(bytes.size()), nullptr));
  if (!number) throw CryptoError::libraryFailure("BN_bin2bn");
  return number;
}

// Builds a public key from OSSL parameters; nothing when OpenSSL rejects the material.
EVPPKeyPtr publicKeyFromParams(const char* keyType, OSSL_PARAM_BLD* builder) {
  ParamsPtr params(OSSL_PARAM_BLD_to_param(builder));
  if (!params) throw CryptoError::libraryFailure("OSSL_PARAM_BLD_to_param");
  EVPPKeyCtxPtr context(EVP_PKEY_CTX_new_from_name(nullptr, keyType, nullptr));
  if (!context || EVP_PKEY_fromdata_init(context.get()) != 1)
    throw CryptoError::libraryFailure("EVP_PKEY_fromdata_init");
  EVP_PKEY* key = nullptr;
  if (EVP_PKEY_fromdata(context.get(), &key, EVP_PKEY_PUBLIC_KEY, params.get()) != 1) {
    drainOpenSSLErrors();
    return nullptr;
  }
  return EVPPKeyPtr(key);
}

// One-shot verification; a mismatch or a malformed signature leaves errors on the queue that
// belong to no one, so they are dropped.
bool digestVerify(EVP_PKEY* key, const EVP_MD* md, ByteView message, ByteView signature) {
  EVPMDCtxPtr context(EVP_MD_CTX_new());
  if (!context) throw CryptoError::libraryFailure("EVP_MD_CTX_new");
  if (EVP_DigestVerifyInit(context.get(), nullptr, md, nullptr, key) != 1) {
    drainOpenSSLErrors();
    return false;
  }
  int result = EVP_DigestVerify(context.get(), signature.data(), signature.size(), message.data(),
                                message.size());
  drainOpenSSLErrors();
  return result == 1;
}

}  // namespace

bool verifyEd25519(ByteView publicKey, ByteView message, ByteView signature) {
  if (publicKey.size() != 32 || signature.size() != 64) return false;
  EVPPKeyPtr key(
      EVP_PKEY_new_raw_public_key(EVP_PKEY_ED25519, nullptr, publicKey.data(), publicKey.size()));
  if (!key) {
    drainOpenSSLErrors();
    return false;
  }
  return digestVerify(key.get(), nullptr, message, signature);
}

bool verifyECDSA(EllipticCurve curve, ByteView point, ByteView message, ByteView r, ByteView s) {
  ParamBuildPtr builder(OSSL_PARAM_BLD_new());
  if (!builder ||
      OSSL_PARAM_BLD_push_utf8_string(builder.get(), OSSL_PKEY_PARAM_GROUP_NAME, groupName(curve),
                                      0) != 1 ||
      OSSL_PARAM_BLD_push_octet_string(builder.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                       point.size()) != 1)
    throw CryptoError::libraryFailure("OSSL_PARAM_BLD_push");
  EVPPKeyPtr key = publicKeyFromParams("EC", builder.get());
  if (!key) return false;

  ECDSASigPtr sig(ECDSA_SIG_new());
  if (!sig) throw CryptoError::libraryFailure("ECDSA_SIG_new");
  BIGNUMPtr rNumber = bignumFrom(r), sNumber = bignumFrom(s);
  if (ECDSA_SIG_set0(sig.get(), rNumber.get(), sNumber.get()) != 1)
    throw CryptoError::libraryFailure("ECDSA_SIG_set0");
  rNumber.release();  // now owned by sig
  sNumber.release();

  int derLength = i2d_ECDSA_SIG(sig.get(), nullptr);
  if (derLength <= 0) throw CryptoError::libraryFailure("i2d_ECDSA_SIG");
  Bytes der(static_cast<size_t>(derLength));
  uint8_t* cursor = der.data();
  i2d_ECDSA_SIG(sig.get(), &cursor);
  return digestVerify(key.get(), evpDigest(curveHash(curve)), message, der);
}

bool verifyRSA(ByteView e, ByteView n, HashAlgorithm hash, ByteView message, ByteView signature) {
  BIGNUMPtr modulus = bignumFrom(n), exponent = bignumFrom(e);
  int bits = BN_num_bits(modulus.get());
  if (bits < kMinimumRSAVerifyBits || bits > kMaximumRSAVerifyBits) return false;
  if (BN_is_zero(exponent.get())) return false;

  ParamBuildPtr builder(OSSL_PARAM_BLD_new());
  if (!builder ||
      OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_N, modulus.get()) != 1 ||
      OSSL_PARAM_BLD_push_BN(builder.get(), OSSL_PKEY_PARAM_RSA_E, exponent.get()) != 1)
    throw CryptoError::libraryFailure("OSSL_PARAM_BLD_push_BN");
  EVPPKeyPtr key = publicKeyFromParams("RSA", builder.get());
  if (!key) return false;

  // Some signers drop leading zero bytes of the signature; OpenSSL wants the modulus length.
  size_t modulusBytes = static_cast<size_t>(BN_num_bytes(modulus.get()));
  if (signature.size() > modulusBytes) return false;
  Bytes padded(modulusBytes - signature.size(), 0);
  padded.insert(padded.end(), signature.begin(), signature.end());
  return digestVerify(key.get(), evpDigest(hash), message, padded);
}

}  // namespace quorvane::crypto
