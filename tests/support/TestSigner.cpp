#include "support/TestSigner.h"

#include <gtest/gtest.h>
#include <openssl/core_names.h>
#include <openssl/ecdsa.h>
#include <openssl/evp.h>

#include "Crypto/OpenSSLHandles.h"
#include "SSHWire/SSHSignature.h"

namespace quorvane::testing {

struct TestSigner::Key {
  EVPPKeyPtr pkey;
};

namespace {

const char* groupName(SSHKeyType type) {
  switch (type) {
    case SSHKeyType::ecdsaP256: return "P-256";
    case SSHKeyType::ecdsaP384: return "P-384";
    case SSHKeyType::ecdsaP521: return "P-521";
    default: return nullptr;
  }
}

const EVP_MD* curveDigest(SSHKeyType type) {
  switch (type) {
    case SSHKeyType::ecdsaP256: return EVP_sha256();
    case SSHKeyType::ecdsaP384: return EVP_sha384();
    default: return EVP_sha512();
  }
}

Bytes bignumParam(EVP_PKEY* key, const char* name) {
  BIGNUM* number = nullptr;
  EXPECT_EQ(EVP_PKEY_get_bn_param(key, name, &number), 1);
  BIGNUMPtr owned(number);
  Bytes bytes(static_cast<size_t>(BN_num_bytes(number)));
  BN_bn2bin(number, bytes.data());
  return bytes;
}

Bytes digestSign(EVP_PKEY* key, const EVP_MD* md, ByteView data) {
  EVPMDCtxPtr context(EVP_MD_CTX_new());
  size_t length = 0;
  EXPECT_EQ(EVP_DigestSignInit(context.get(), nullptr, md, nullptr, key), 1);
  EXPECT_EQ(EVP_DigestSign(context.get(), nullptr, &length, data.data(), data.size()), 1);
  Bytes signature(length);
  EXPECT_EQ(EVP_DigestSign(context.get(), signature.data(), &length, data.data(), data.size()), 1);
  signature.resize(length);
  return signature;
}

}  // namespace

TestSigner::TestSigner(SSHKeyType type) : type_(type), key_(std::make_unique<Key>()) {
  switch (type) {
    case SSHKeyType::ed25519: {
      key_->pkey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "ED25519"));
      Bytes raw(32);
      size_t length = raw.size();
      EXPECT_EQ(EVP_PKEY_get_raw_public_key(key_->pkey.get(), raw.data(), &length), 1);
      publicKey_ = SSHPublicKey::ed25519(raw);
      break;
    }
    case SSHKeyType::ecdsaP256:
    case SSHKeyType::ecdsaP384:
    case SSHKeyType::ecdsaP521: {
      key_->pkey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "EC", groupName(type)));
      Bytes point(1 + 2 * curveFieldLength(type));
      size_t length = 0;
      EXPECT_EQ(EVP_PKEY_get_octet_string_param(key_->pkey.get(), OSSL_PKEY_PARAM_PUB_KEY,
                                                point.data(), point.size(), &length),
                1);
      publicKey_ = SSHPublicKey::ecdsa(type, point);
      break;
    }
    case SSHKeyType::rsa: {
      key_->pkey.reset(EVP_PKEY_Q_keygen(nullptr, nullptr, "RSA", size_t{2048}));
      publicKey_ = SSHPublicKey::rsa(bignumParam(key_->pkey.get(), OSSL_PKEY_PARAM_RSA_E),
                                     bignumParam(key_->pkey.get(), OSSL_PKEY_PARAM_RSA_N));
      break;
    }
    case SSHKeyType::mldsa44Ed25519: ADD_FAILURE() << "no test signer for this key type";
  }
  EXPECT_NE(key_->pkey, nullptr);
}

TestSigner::~TestSigner() = default;

Bytes TestSigner::sign(ByteView data, SignFlags flags) const {
  EVP_PKEY* key = key_->pkey.get();
  switch (type_) {
    case SSHKeyType::ed25519: return SSHSignature::ed25519(digestSign(key, nullptr, data));
    case SSHKeyType::rsa: {
      std::string algorithm = signatureAlgorithm(type_, flags).value_or("rsa-sha2-512");
      const EVP_MD* md = algorithm == "rsa-sha2-256" ? EVP_sha256() : EVP_sha512();
      return SSHSignature::rsa(algorithm, digestSign(key, md, data));
    }
    default: {
      Bytes der = digestSign(key, curveDigest(type_), data);
      const uint8_t* cursor = der.data();
      ECDSASigPtr sig(d2i_ECDSA_SIG(nullptr, &cursor, static_cast<long>(der.size())));
      int half = static_cast<int>(curveFieldLength(type_));
      Bytes raw(2 * static_cast<size_t>(half));
      BN_bn2binpad(ECDSA_SIG_get0_r(sig.get()), raw.data(), half);
      BN_bn2binpad(ECDSA_SIG_get0_s(sig.get()), raw.data() + half, half);
      return SSHSignature::ecdsa(type_, raw);
    }
  }
}

}  // namespace quorvane::testing
