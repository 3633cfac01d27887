// The binary pairing messages: round trips, and every way a hostile relay or peer can damage one.

#include <gtest/gtest.h>

#include "Base/Random.h"
#include "Pairing/PairingNonceMessages.h"
#include "Pairing/PairingOffer.h"
#include "Pairing/PairingReply.h"
#include "Pairing/PairingTranscript.h"
#include "PairingTestSupport.h"

namespace quorvane {
namespace {

using testing::failureOf;
using Failure = QAPFailure::Kind;

DeviceIdentity sampleIdentity(std::string name) {
  return DeviceIdentity{Bytes(65, 4), Bytes(1216, 7), std::move(name)};
}

PairingOffer sampleOffer() {
  return PairingOffer{"https://relay.example/",
                      "computer-box",
                      SecureBytes(bytesOf("computer token")),
                      "reply-box",
                      SecureBytes(bytesOf("reply token")),
                      sampleIdentity("build-box"),
                      SecureBytes(Bytes(32, 0xa5)),
                      1796000000000};
}

PairingReply sampleReply() {
  return PairingReply{sampleIdentity("laptop"),    DeviceKind::mac, "device-box",
                      SecureBytes(bytesOf("dev")), Bytes(32, 1),    Bytes(32, 2)};
}

// One codec under test: valid bytes, and a decoder that throws.
struct Codec {
  const char* name;
  Bytes valid;
  std::function<void(ByteView)> decode;
};

std::vector<Codec> codecs() {
  return {
      {"offer", encodePairingOffer(sampleOffer()), [](ByteView b) { decodePairingOffer(b); }},
      {"reply", encodePairingReply(sampleReply()), [](ByteView b) { decodePairingReply(b); }},
      {"challenge", encodePairingChallenge({Bytes(32, 3), Bytes(32, 4)}),
       [](ByteView b) { decodePairingChallenge(b); }},
      {"reveal", encodePairingReveal({Bytes(32, 3), Bytes(32, 4), Bytes(32, 5)}),
       [](ByteView b) { decodePairingReveal(b); }},
  };
}

TEST(PairingMessagesTest, RoundTrip) {
  EXPECT_EQ(decodePairingOffer(encodePairingOffer(sampleOffer())), sampleOffer());
  EXPECT_EQ(decodePairingReply(encodePairingReply(sampleReply())), sampleReply());
  const PairingChallenge challenge{Bytes(32, 3), Bytes(32, 4)};
  EXPECT_EQ(decodePairingChallenge(encodePairingChallenge(challenge)), challenge);
  const PairingReveal reveal{Bytes(32, 3), Bytes(32, 4), Bytes(32, 5)};
  EXPECT_EQ(decodePairingReveal(encodePairingReveal(reveal)), reveal);
}

TEST(PairingMessagesTest, EveryTruncationIsMalformed) {
  for (const Codec& codec : codecs())
    for (size_t length = 0; length < codec.valid.size(); ++length)
      ASSERT_EQ(failureOf([&] { codec.decode(ByteView(codec.valid).first(length)); }),
                Failure::malformed)
          << codec.name << " cut to " << length;
}

TEST(PairingMessagesTest, ATrailingByteIsMalformed) {
  for (Codec codec : codecs()) {
    codec.valid.push_back(0);
    EXPECT_EQ(failureOf([&] { codec.decode(codec.valid); }), Failure::malformed) << codec.name;
  }
}

TEST(PairingMessagesTest, OtherVersionsAreUnsupported) {
  for (Codec codec : codecs())
    for (uint8_t version : {1, 3}) {
      codec.valid[3] = version;
      EXPECT_EQ(failureOf([&] { codec.decode(codec.valid); }), Failure::unsupportedVersion)
          << codec.name;
    }
}

TEST(PairingMessagesTest, RandomBytesNeverDecode) {
  for (int round = 0; round < 200; ++round) {
    Bytes bytes = crypto::randomBytes(static_cast<size_t>(round) * 7);
    for (const Codec& codec : codecs()) EXPECT_THROW(codec.decode(bytes), QAPFailure);
  }
}

TEST(PairingMessagesTest, FieldsOfTheWrongSizeAreMalformed) {
  PairingReply longCommitment = sampleReply();
  longCommitment.commitment = Bytes(33, 1);
  EXPECT_EQ(failureOf([&] { decodePairingReply(encodePairingReply(longCommitment)); }),
            Failure::malformed);
  PairingOffer badKey = sampleOffer();
  badKey.macIdentity.signingKey.pop_back();
  EXPECT_EQ(failureOf([&] { decodePairingOffer(encodePairingOffer(badKey)); }), Failure::malformed);
  PairingOffer longName = sampleOffer();
  longName.macIdentity.name = std::string(2049, 'n');
  EXPECT_EQ(failureOf([&] { decodePairingOffer(encodePairingOffer(longName)); }),
            Failure::malformed);
  EXPECT_EQ(failureOf([] {
              decodePairingChallenge(encodePairingChallenge({Bytes(32), {}}));
            }),
            Failure::malformed);
}

TEST(PairingMessagesTest, AnUnknownDeviceKindIsMalformed) {
  Bytes bytes = encodePairingReply(sampleReply());
  // The kind byte follows the version word and the identity's three strings.
  const size_t kindOffset = 4 + (4 + 65) + (4 + 1216) + (4 + 6);
  ASSERT_EQ(bytes[kindOffset], 3);
  bytes[kindOffset] = 4;
  EXPECT_EQ(failureOf([&] { decodePairingReply(bytes); }), Failure::malformed);
}

TEST(PairingMessagesTest, ShortAuthenticationStringKeepsLeadingZeros) {
  EXPECT_EQ(shortAuthenticationString(Bytes{0, 0, 0, 7}), "000 007");
  EXPECT_EQ(shortAuthenticationString(Bytes{0, 0, 0xa4, 0x15, 0xff}), "042 005");
  // 0xffffffff = 4294967295, of which the last six digits are shown.
  EXPECT_EQ(shortAuthenticationString(Bytes{0xff, 0xff, 0xff, 0xff}), "967 295");
}

TEST(PairingMessagesTest, CommitmentBindsSecretDeviceAndNonce) {
  const Bytes secret(32, 1), device(32, 2), nonce(32, 3);
  const Bytes commitment = pairingCommitment(secret, device, nonce);
  EXPECT_EQ(commitment.size(), 32u);
  EXPECT_NE(commitment, pairingCommitment(Bytes(32, 9), device, nonce));
  EXPECT_NE(commitment, pairingCommitment(secret, Bytes(32, 9), nonce));
  EXPECT_NE(commitment, pairingCommitment(secret, device, Bytes(32, 9)));
}

TEST(PairingMessagesTest, TagsMatchOnlyWhenEqual) {
  EXPECT_TRUE(tagsMatch(Bytes(32, 1), Bytes(32, 1)));
  EXPECT_FALSE(tagsMatch(Bytes(32, 1), Bytes(31, 1)));
  Bytes other(32, 1);
  other[31] ^= 1;
  EXPECT_FALSE(tagsMatch(Bytes(32, 1), other));
}

}  // namespace
}  // namespace quorvane
