#include <gtest/gtest.h>

#include "Base/Hex.h"
#include "KeyStore/ImportedKey.h"
#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireReader.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

std::string algorithmOf(ByteView signatureBlob) {
  WireReader reader(signatureBlob);
  return textOf(reader.readString());
}

class ImportedKeyByAlgorithm : public ::testing::TestWithParam<KeyAlgorithm> {};

TEST_P(ImportedKeyByAlgorithm, SignsVerifiablyAndSurvivesItsSecretForm) {
  const ImportedKey key = ImportedKey::generate(GetParam(), 2048);
  EXPECT_EQ(key.publicKey().type, rawValue(GetParam()));

  const Bytes data = bytesOf("data to sign");
  const Bytes signature = key.sign(data, SignFlags::rsaSHA2_256);
  EXPECT_TRUE(verify(signature, data, key.publicKey()));
  EXPECT_FALSE(verify(signature, bytesOf("other data"), key.publicKey()));

  auto restored = ImportedKey::fromSecret(GetParam(), key.secret().view());
  ASSERT_TRUE(restored);
  EXPECT_EQ(restored->publicKey(), key.publicKey());
  EXPECT_TRUE(verify(restored->sign(data, SignFlags::rsaSHA2_256), data, key.publicKey()));
}

TEST_P(ImportedKeyByAlgorithm, RefusesSecretsOfTheWrongShape) {
  const SecureBytes secret = ImportedKey::generate(GetParam(), 2048).secret();
  Bytes longer(secret.view().begin(), secret.view().end());
  longer.push_back(0);
  EXPECT_FALSE(ImportedKey::fromSecret(GetParam(), longer));
  EXPECT_FALSE(ImportedKey::fromSecret(GetParam(), secret.view().first(secret.size() - 1)));
  EXPECT_FALSE(ImportedKey::fromSecret(GetParam(), {}));
}

INSTANTIATE_TEST_SUITE_P(EveryAlgorithm, ImportedKeyByAlgorithm,
                         ::testing::Values(KeyAlgorithm::ed25519, KeyAlgorithm::ecdsaP256,
                                           KeyAlgorithm::ecdsaP384, KeyAlgorithm::rsa));

TEST(ImportedKey, RefusesScalarsOutsideTheGroup) {
  // The order of P-256 (FIPS 186-4, D.1.2.3) and zero are not private keys; order - 1 is.
  const Bytes order =
      *hexDecode("ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551");
  EXPECT_FALSE(ImportedKey::fromSecret(KeyAlgorithm::ecdsaP256, order));
  EXPECT_FALSE(ImportedKey::fromSecret(KeyAlgorithm::ecdsaP256, Bytes(32, 0)));
  Bytes below = order;
  below.back() -= 1;
  EXPECT_TRUE(ImportedKey::fromSecret(KeyAlgorithm::ecdsaP256, below));
}

TEST(ImportedKey, RSAFlagsChooseTheHash) {
  const ImportedKey key = ImportedKey::generate(KeyAlgorithm::rsa, 2048);
  EXPECT_EQ(key.bits(), 2048);
  EXPECT_EQ(algorithmOf(key.sign(bytesOf("x"), SignFlags::rsaSHA2_256)), "rsa-sha2-256");
  EXPECT_EQ(algorithmOf(key.sign(bytesOf("x"), SignFlags::rsaSHA2_512)), "rsa-sha2-512");
  EXPECT_EQ(algorithmOf(key.sign(bytesOf("x"), SignFlags{6})), "rsa-sha2-256");
}

}  // namespace
}  // namespace quorvane
