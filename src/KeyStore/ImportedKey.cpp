#include "KeyStore/ImportedKey.h"

#include <openssl/core_names.h>
#include <openssl/ec.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>
#include <openssl/obj_mac.h>
#include <openssl/x509.h>

#include "Base/Check.h"
#include "Base/CryptoError.h"
#include "Crypto/ECKeyPair.h"
#include "Crypto/HashInternal.h"
#include "Crypto/OpenSSLHandles.h"
#include "SSHWire/SSHSignature.h"

namespace quorvane {
namespace {

std::shared_ptr<EVP_PKEY> share(EVP_PKEY* key) {
  if (key == nullptr) throw CryptoError::libraryFailure("EVP_PKEY");
  return std::shared_ptr<EVP_PKEY>(key, EVP_PKEY_free);
}

int curveNID(KeyAlgorithm algorithm) {
  return algorithm == KeyAlgorithm::ecdsaP256 ? NID_X9_62_prime256v1 : NID_secp384r1;
}

const char* curveName(KeyAlgorithm algorithm) {
  return algorithm == KeyAlgorithm::ecdsaP256 ? "P-256" : "P-384";
}

size_t fieldLength(KeyAlgorithm algorithm) { return curveFieldLength(sshKeyType(algorithm)); }

Bytes bignumParam(EVP_PKEY* key, const char* name) {
  BIGNUM* number = nullptr;
  if (EVP_PKEY_get_bn_param(key, name, &number) != 1)
    throw CryptoError::libraryFailure("EVP_PKEY_get_bn_param");
  BIGNUMPtr owned(number);
  Bytes bytes(static_cast<size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, bytes.data());
  return bytes;
}

// The EC key of `scalar` on the curve of `algorithm`, with its public point computed here.
std::optional<std::shared_ptr<EVP_PKEY>> ecKeyFromScalar(KeyAlgorithm algorithm, ByteView scalar) {
  if (scalar.size() != fieldLength(algorithm)) return std::nullopt;
  ECGroupPtr group(EC_GROUP_new_by_curve_name(curveNID(algorithm)));
  SecretBIGNUMPtr privateScalar(
      BN_bin2bn(scalar.data(), static_cast<int>(scalar.size()), BN_secure_new()));
  if (!group || !privateScalar) throw CryptoError::libraryFailure("EC setup");
  if (BN_is_zero(privateScalar.get()) ||
      BN_cmp(privateScalar.get(), EC_GROUP_get0_order(group.get())) >= 0)
    return std::nullopt;

  return share(
      ecKeyPairFromScalar(group.get(), curveName(algorithm), privateScalar.get()).release());
}

std::optional<std::shared_ptr<EVP_PKEY>> keyFromSecret(KeyAlgorithm algorithm, ByteView secret) {
  switch (algorithm) {
    case KeyAlgorithm::ed25519: {
      if (secret.size() != 32) return std::nullopt;
      return share(
          EVP_PKEY_new_raw_private_key(EVP_PKEY_ED25519, nullptr, secret.data(), secret.size()));
    }
    case KeyAlgorithm::ecdsaP256:
    case KeyAlgorithm::ecdsaP384: return ecKeyFromScalar(algorithm, secret);
    case KeyAlgorithm::rsa: {
      const uint8_t* cursor = secret.data();
      EVP_PKEY* key =
          d2i_PrivateKey(EVP_PKEY_RSA, nullptr, &cursor, static_cast<long>(secret.size()));
      if (key == nullptr) {
        drainOpenSSLErrors();
        return std::nullopt;
      }
      auto shared = share(key);
      if (cursor != secret.data() + secret.size()) return std::nullopt;
      return shared;
    }
  }
  return std::nullopt;
}

Bytes digestSign(EVP_PKEY* key, const EVP_MD* md, ByteView data) {
  EVPMDCtxPtr context(EVP_MD_CTX_new());
  size_t length = 0;
  if (!context || EVP_DigestSignInit(context.get(), nullptr, md, nullptr, key) != 1 ||
      EVP_DigestSign(context.get(), nullptr, &length, data.data(), data.size()) != 1)
    throw CryptoError::libraryFailure("EVP_DigestSignInit");
  Bytes signature(length);
  if (EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()) != 1)
    throw CryptoError::libraryFailure("EVP_DigestSign");
  signature.resize(length);
  return signature;
}

// r || s, each left-padded to `half` bytes, from a DER ECDSA-Sig-Value.
Bytes rawECDSASignature(ByteView der, size_t half) {
  const uint8_t* cursor = der.data();
  ECDSASigPtr signature(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(der.size())));
  if (!signature) throw CryptoError::libraryFailure("d2i_ECDSA_SIG");
  Bytes raw(2 * half);
  if (BN_bn2binpad(ECDSA_SIG_get0_r(signature.get()), raw.data(), static_cast<int>(half)) < 0 ||
      BN_bn2binpad(ECDSA_SIG_get0_s(signature.get()), raw.data() + half, static_cast<int>(half)) <
          0)
    throw CryptoError::libraryFailure("BN_bn2binpad");
  return raw;
}

}  // namespace

ImportedKey::ImportedKey(KeyAlgorithm algorithm, std::shared_ptr<EVP_PKEY> key)
    : algorithm_(algorithm), key_(std::move(key)) {
  switch (algorithm_) {
    case KeyAlgorithm::ed25519: {
      Bytes raw(32);
      size_t length = raw.size();
      if (EVP_PKEY_get_raw_public_key(key_.get(), raw.data(), &length) != 1 || length != 32)
        throw CryptoError::libraryFailure("EVP_PKEY_get_raw_public_key");
      publicKey_ = SSHPublicKey::ed25519(raw);
      break;
    }
    case KeyAlgorithm::ecdsaP256:
    case KeyAlgorithm::ecdsaP384: {
      Bytes point(1 + 2 * fieldLength(algorithm_));
      size_t length = 0;
      if (EVP_PKEY_get_octet_string_param(key_.get(), OSSL_PKEY_PARAM_PUB_KEY, point.data(),
                                          point.size(), &length) != 1 ||
          length != point.size())
        throw CryptoError::libraryFailure("EVP_PKEY_get_octet_string_param");
      publicKey_ = SSHPublicKey::ecdsa(sshKeyType(algorithm_), point);
      break;
    }
    case KeyAlgorithm::rsa:
      publicKey_ = SSHPublicKey::rsa(bignumParam(key_.get(), OSSL_PKEY_PARAM_RSA_E),
                                     bignumParam(key_.get(), OSSL_PKEY_PARAM_RSA_N));
      break;
  }
}

std::optional<ImportedKey> ImportedKey::fromSecret(KeyAlgorithm algorithm, ByteView secret) {
  auto key = keyFromSecret(algorithm, secret);
  if (!key) return std::nullopt;
  return ImportedKey(algorithm, std::move(*key));
}

ImportedKey ImportedKey::generate(KeyAlgorithm algorithm, int rsaBits) {
  EVP_PKEY* key = nullptr;
  switch (algorithm) {
    case KeyAlgorithm::ed25519: key = EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"); break;
    case KeyAlgorithm::ecdsaP256:
    case KeyAlgorithm::ecdsaP384:
      key = EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", curveName(algorithm));
      break;
    case KeyAlgorithm::rsa:
      key = EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", static_cast<size_t>(rsaBits));
      break;
  }
  return ImportedKey(algorithm, share(key));
}

int ImportedKey::bits() const { return EVP_PKEY_get_bits(key_.get()); }

SecureBytes ImportedKey::secret() const {
  switch (algorithm_) {
    case KeyAlgorithm::ed25519: {
      SecureBytes seed(32);
      size_t length = seed.size();
      if (EVP_PKEY_get_raw_private_key(key_.get(), seed.data(), &length) != 1 || length != 32)
        throw CryptoError::libraryFailure("EVP_PKEY_get_raw_private_key");
      return seed;
    }
    case KeyAlgorithm::ecdsaP256:
    case KeyAlgorithm::ecdsaP384: {
      BIGNUM* number = nullptr;
      if (EVP_PKEY_get_bn_param(key_.get(), OSSL_PKEY_PARAM_PRIV_KEY, &number) != 1)
        throw CryptoError::libraryFailure("EVP_PKEY_get_bn_param(priv)");
      SecretBIGNUMPtr scalar(number);
      SecureBytes out(fieldLength(algorithm_));
      if (BN_bn2binpad(scalar.get(), out.data(), static_cast<int>(out.size())) < 0)
        throw CryptoError::libraryFailure("BN_bn2binpad");
      return out;
    }
    case KeyAlgorithm::rsa: {
      unsigned char* der = nullptr;
      int length = i2d_PrivateKey(key_.get(), &der);
      if (length <= 0) throw CryptoError::libraryFailure("i2d_PrivateKey");
      SecureBytes out(ByteView(der, static_cast<size_t>(length)));
      OPENSSL_clear_free(der, static_cast<size_t>(length));
      return out;
    }
  }
  return {};
}

Bytes ImportedKey::sign(ByteView data, SignFlags flags) const {
  switch (algorithm_) {
    case KeyAlgorithm::ed25519: return SSHSignature::ed25519(digestSign(key_.get(), nullptr, data));
    case KeyAlgorithm::ecdsaP256:
      return SSHSignature::ecdsa(
          SSHKeyType::ecdsaP256,
          rawECDSASignature(
              digestSign(key_.get(), crypto::evpDigest(crypto::HashAlgorithm::sha256), data), 32));
    case KeyAlgorithm::ecdsaP384:
      return SSHSignature::ecdsa(
          SSHKeyType::ecdsaP384,
          rawECDSASignature(
              digestSign(key_.get(), crypto::evpDigest(crypto::HashAlgorithm::sha384), data), 48));
    case KeyAlgorithm::rsa: {
      auto algorithm = signatureAlgorithm(SSHKeyType::rsa, flags);
      QUORVANE_CHECK(algorithm.has_value(), "RSA signatures need a SHA-2 flag");
      const EVP_MD* md =
          crypto::evpDigest(*algorithm == "rsa-sha2-256" ? crypto::HashAlgorithm::sha256
                                                         : crypto::HashAlgorithm::sha512);
      return SSHSignature::rsa(*algorithm, digestSign(key_.get(), md, data));
    }
  }
  return {};
}

}  // namespace quorvane
