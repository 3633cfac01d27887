#include <gtest/gtest.h>

#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/Envelope.h"
#include "ApprovalProto/SoftwareSigner.h"
#include "ApprovalTestSupport.h"
#include "Base/Hex.h"
#include "Crypto/SignatureVerification.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::failureOf;
using testing::hex;

TEST(DeviceIdentity, JSONHasBase64KeysAndTheName) {
  const DeviceIdentity identity{hex("04 0102"), hex("ff"), "Phone"};
  EXPECT_EQ(toJSON(identity).dump(), R"({"kemKey":"/w==","name":"Phone","signingKey":"BAEC"})");
  EXPECT_EQ(decodeDeviceIdentity(JSONReader(toJSON(identity))), identity);
}

struct BadIdentityJSON {
  const char* text;
  DecodingError::Kind expected;
};

class DeviceIdentityDecoding : public ::testing::TestWithParam<BadIdentityJSON> {};

TEST_P(DeviceIdentityDecoding, RefusesWithTheReadersError) {
  const JSON document = parseJSON(GetParam().text);
  try {
    decodeDeviceIdentity(JSONReader(document));
    ADD_FAILURE() << "decoded";
  } catch (const DecodingError& error) {
    EXPECT_EQ(error.kind(), GetParam().expected) << error.what();
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DeviceIdentityDecoding,
    ::testing::Values(BadIdentityJSON{R"({"kemKey":"/w==","signingKey":"BAEC"})",
                                      DecodingError::Kind::keyNotFound},
                      BadIdentityJSON{R"({"kemKey":"/w=","name":"P","signingKey":"BAEC"})",
                                      DecodingError::Kind::dataCorrupted},
                      BadIdentityJSON{R"({"kemKey":7,"name":"P","signingKey":"BAEC"})",
                                      DecodingError::Kind::typeMismatch},
                      BadIdentityJSON{R"({"kemKey":"/w==","name":"P","signingKey":null})",
                                      DecodingError::Kind::valueNotFound}));

TEST(DeviceIdentity, IdentityHashIsSHA256OfTheSigningKey) {
  EXPECT_EQ(identityHash(hex("04" + std::string(128, '0'))),
            hex("59ef1a5a00f35b1a722da56ca70b52a721f33998634d4fa4259301f170f7b6bd"));
}

TEST(Envelope, OnlyKindsOneToEightDecode) {
  for (const Bytes& nothing : {Bytes{}, hex("00"), hex("09 01"), hex("ff")})
    EXPECT_EQ(Envelope::decode(nothing), std::nullopt) << hexEncode(nothing);
  for (uint8_t kind = 1; kind <= 8; ++kind) {
    const Envelope envelope{static_cast<EnvelopeKind>(kind), kind % 2 ? Bytes{} : hex("0102")};
    EXPECT_EQ(envelope.encode()[0], kind);
    EXPECT_EQ(Envelope::decode(envelope.encode()), envelope);
  }
  EXPECT_EQ(Envelope::decode(hex("06 0a0b"))->body, hex("0a0b"));
}

// The private key 1 has the generator as its public key (SEC 2).
TEST(SoftwareSigner, ImportsAPrivateKeyAndSignsInRawForm) {
  Bytes one(32, 0);
  one.back() = 1;
  const SoftwareSigner signer = SoftwareSigner::fromPrivateKey(one);
  EXPECT_EQ(signer.publicKey(),
            hex("04 6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296"
                "4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5"));
  EXPECT_EQ(signer.privateKey(), SecureBytes(one));

  const SoftwareSigner fresh = SoftwareSigner::generate();
  EXPECT_EQ(SoftwareSigner::fromPrivateKey(fresh.privateKey().view()).publicKey(),
            fresh.publicKey());
  for (const char* text : {"", "QAP1 request", "a longer message to sign"}) {
    const Bytes signature = fresh.sign(bytesOf(text));
    ASSERT_EQ(signature.size(), 64u);
    EXPECT_TRUE(crypto::verifyECDSA(crypto::EllipticCurve::p256, fresh.publicKey(), bytesOf(text),
                                    ByteView(signature).first(32),
                                    ByteView(signature).subspan(32)));
  }
}

TEST(SoftwareSigner, RefusesScalarsOutsideTheGroup) {
  const Bytes order = hex("ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551");
  for (const Bytes& bad : {Bytes(32, 0), order, Bytes(31, 1), Bytes(33, 1)})
    EXPECT_EQ(failureOf([&] { SoftwareSigner::fromPrivateKey(bad); }), QAPFailure::Kind::malformed);
}

TEST(DeviceKeys, RestoreFromTheSeedAndItsStoredPublicKey) {
  const DeviceKeys keys = DeviceKeys::generate("Mac");
  const Bytes publicKey = keys.kem.publicKey().bytes();
  const DeviceKeys restored =
      DeviceKeys::restore(keys.signer, keys.kem.seed().view(), publicKey, "Mac");
  EXPECT_EQ(restored.identity(), keys.identity());

  Bytes otherPublicKey = publicKey;
  otherPublicKey.back() ^= 1;
  EXPECT_EQ(failureOf([&] {
              DeviceKeys::restore(keys.signer, keys.kem.seed().view(), otherPublicKey, "Mac");
            }),
            QAPFailure::Kind::malformed);
  EXPECT_EQ(failureOf([&] {
              DeviceKeys::restore(keys.signer, keys.kem.seed().view().first(31), publicKey, "Mac");
            }),
            QAPFailure::Kind::malformed);
}

}  // namespace
}  // namespace quorvane
