#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "Crypto/MLKEM768.h"
#include "Crypto/XWing.h"
#include "support/VectorFile.h"

namespace quorvane::crypto {
namespace {

using nlohmann::json;
using testing::hexField;
using testing::loadVectorFile;

struct XWingCase {
  std::string name;
  Bytes seed, publicKey, encapsulationSeed, ciphertext, sharedSecret;
};

std::vector<XWingCase> xwingCases() {
  std::vector<XWingCase> cases;
  const json draft = loadVectorFile("xwing/xwing_draft_test_vectors.json");
  for (size_t i = 0; i < draft.size(); ++i) {
    const json& v = draft[i];
    cases.push_back({"draft_" + std::to_string(i), hexField(v, "seed"), hexField(v, "pk"),
                     hexField(v, "eseed"), hexField(v, "ct"), hexField(v, "ss")});
  }
  const json hybrid = loadVectorFile("xwing/mlkem768_x25519_concrete_hybrid_kems.json");
  for (size_t i = 0; i < hybrid.size(); ++i) {
    const json& v = hybrid[i];
    cases.push_back({"concrete_hybrid_" + std::to_string(i), hexField(v, "seed"),
                     hexField(v, "encapsulation_key"), hexField(v, "randomness"),
                     hexField(v, "ciphertext"), hexField(v, "shared_secret")});
  }
  return cases;
}

class XWingVectors : public ::testing::TestWithParam<XWingCase> {};

TEST_P(XWingVectors, KeyEncapsulationAndDecapsulationMatch) {
  const XWingCase& c = GetParam();
  std::optional<XWingPrivateKey> privateKey = XWingPrivateKey::fromSeed(c.seed);
  ASSERT_TRUE(privateKey);
  EXPECT_EQ(privateKey->publicKey().bytes(), c.publicKey);

  std::optional<XWingPublicKey> publicKey = XWingPublicKey::fromBytes(c.publicKey);
  ASSERT_TRUE(publicKey);
  std::optional<XWingEncapsulation> sent = publicKey->encapsulate(c.encapsulationSeed);
  ASSERT_TRUE(sent);
  EXPECT_EQ(sent->ciphertext, c.ciphertext);
  EXPECT_EQ(sent->sharedSecret, SecureBytes(c.sharedSecret));
  EXPECT_EQ(privateKey->decapsulate(c.ciphertext), SecureBytes(c.sharedSecret));
}

INSTANTIATE_TEST_SUITE_P(Vectors, XWingVectors, ::testing::ValuesIn(xwingCases()),
                         [](const auto& test) { return test.param.name; });

// Inputs that must be refused, built from the first draft vector.
TEST(XWing, RefusesMalformedKeysAndCiphertexts) {
  const XWingCase valid = xwingCases().front();
  const XWingPrivateKey privateKey = *XWingPrivateKey::fromSeed(valid.seed);

  EXPECT_FALSE(XWingPrivateKey::fromSeed(ByteView(valid.seed).first(31)));
  EXPECT_FALSE(XWingPublicKey::fromBytes(ByteView(valid.publicKey).first(1215)));
  Bytes unreduced = valid.publicKey;  // the first ML-KEM coefficient becomes 4095 >= q
  unreduced[0] = 0xff;
  unreduced[1] |= 0x0f;
  EXPECT_FALSE(XWingPublicKey::fromBytes(unreduced));

  EXPECT_FALSE(privateKey.decapsulate(ByteView(valid.ciphertext).first(1119)));
  Bytes smallOrder = valid.ciphertext;  // X25519 part = the point 0, whose result is all zero
  std::fill(smallOrder.begin() + kMLKEM768CiphertextSize, smallOrder.end(), 0);
  EXPECT_FALSE(privateKey.decapsulate(smallOrder));
  Bytes smallOrderKey = valid.publicKey;
  std::fill(smallOrderKey.begin() + kMLKEM768EncapsulationKeySize, smallOrderKey.end(), 0);
  EXPECT_FALSE(XWingPublicKey::fromBytes(smallOrderKey)->encapsulate(valid.encapsulationSeed));
}

TEST(XWing, FreshKeysAgreeAndAForeignCiphertextGivesAnotherSecret) {
  const XWingPrivateKey alice = XWingPrivateKey::generate();
  const XWingPrivateKey bob = XWingPrivateKey::generate();
  std::optional<XWingEncapsulation> sent = alice.publicKey().encapsulate();
  ASSERT_TRUE(sent);
  EXPECT_EQ(alice.decapsulate(sent->ciphertext), sent->sharedSecret);
  std::optional<SecureBytes> rejected = bob.decapsulate(sent->ciphertext);
  ASSERT_TRUE(rejected);  // implicit rejection: a secret, but not the sender's
  EXPECT_NE(*rejected, sent->sharedSecret);
  EXPECT_EQ(XWingPrivateKey::fromSeed(alice.seed().view())->publicKey(), alice.publicKey());
}

}  // namespace
}  // namespace quorvane::crypto
