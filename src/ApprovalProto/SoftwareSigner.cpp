#include "ApprovalProto/SoftwareSigner.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/obj_mac.h>

#include "ApprovalProto/QAPFailure.h"
#include "Base/CryptoError.h"
#include "Crypto/ECKeyPair.h"
#include "Crypto/OpenSSLHandles.h"

namespace quorvane {
namespace {

constexpr size_t kScalarSize = 32;
constexpr size_t kPublicKeySize = 65;

}  // namespace

SoftwareSigner::SoftwareSigner(EVP_PKEY* key) : key_(key, EVP_PKEY_free) {
  if (!key_) throw CryptoError::libraryFailure("P-256 key");
  publicKey_.resize(kPublicKeySize);
  size_t length = 0;
  if (EVP_PKEY_get_octet_string_param(key_.get(), OSSL_PKEY_PARAM_PUB_KEY, publicKey_.data(),
                                      publicKey_.size(), &length) != 1 ||
      length != kPublicKeySize || publicKey_[0] != 0x04)
    throw CryptoError::libraryFailure("EVP_PKEY_get_octet_string_param(P-256 public key)");
}

SoftwareSigner SoftwareSigner::generate() {
  return SoftwareSigner(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", "P-256"));
}

SoftwareSigner SoftwareSigner::fromPrivateKey(ByteView rawPrivateKey) {
  if (rawPrivateKey.size() != kScalarSize) throw QAPFailure(QAPFailure::Kind::malformed);
  ECGroupPtr group(EC_GROUP_new_by_curve_name(NID_X9_62_prime256v1));
  SecretBIGNUMPtr scalar(BN_secure_new());
  if (!group || !scalar ||
      BN_bin2bn(rawPrivateKey.data(), static_cast<int>(rawPrivateKey.size()), scalar.get()) ==
          nullptr)
    throw CryptoError::libraryFailure("P-256 private key");
  if (BN_is_zero(scalar.get()) || BN_cmp(scalar.get(), EC_GROUP_get0_order(group.get())) >= 0)
    throw QAPFailure(QAPFailure::Kind::malformed);
  return SoftwareSigner(ecKeyPairFromScalar(group.get(), "P-256", scalar.get()).release());
}

SecureBytes SoftwareSigner::privateKey() const {
  BIGNUM* raw = nullptr;
  if (EVP_PKEY_get_bn_param(key_.get(), OSSL_PKEY_PARAM_PRIV_KEY, &raw) != 1)
    throw CryptoError::libraryFailure("EVP_PKEY_get_bn_param(P-256 private key)");
  SecretBIGNUMPtr scalar(raw);
  SecureBytes out(kScalarSize);
  if (BN_bn2binpad(scalar.get(), out.data(), static_cast<int>(out.size())) !=
      static_cast<int>(kScalarSize))
    throw CryptoError::libraryFailure("BN_bn2binpad");
  return out;
}

Bytes SoftwareSigner::sign(ByteView data) const {
  EVPMDCtxPtr context(EVP_MD_CTX_new());
  if (!context || EVP_DigestSignInit_ex(context.get(), nullptr, "SHA256", nullptr, nullptr,
                                        key_.get(), nullptr) != 1)
    throw CryptoError::libraryFailure("EVP_DigestSignInit_ex(P-256)");
  size_t length = 0;
  if (EVP_DigestSign(context.get(), nullptr, &length, data.data(), data.size()) != 1)
    throw CryptoError::libraryFailure("EVP_DigestSign(P-256)");
  Bytes der(length);
  if (EVP_DigestSign(context.get(), der.data(), &length, data.data(), data.size()) != 1)
    throw CryptoError::libraryFailure("EVP_DigestSign(P-256)");
  const uint8_t* cursor = der.data();
  ECDSASigPtr signature(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(length)));
  const BIGNUM *r = nullptr, *s = nullptr;
  if (signature) ECDSA_SIG_get0(signature.get(), &r, &s);
  Bytes raw(2 * kScalarSize);
  if (!signature || BN_bn2binpad(r, raw.data(), kScalarSize) != kScalarSize ||
      BN_bn2binpad(s, raw.data() + kScalarSize, kScalarSize) != kScalarSize)
    throw CryptoError::libraryFailure("ECDSA signature conversion");
  return raw;
}

}  // namespace quorvane
