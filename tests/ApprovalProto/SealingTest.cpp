#include <gtest/gtest.h>

#include <functional>

#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/Sealing.h"
#include "ApprovalTestSupport.h"
#include "Crypto/HPKE.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::failureOf;
using Kind = QAPFailure::Kind;

// The parties of every case: two Macs and two devices, made once for the suite.
struct Parties {
  DeviceKeys mac = DeviceKeys::generate("Mac");
  DeviceKeys otherMac = DeviceKeys::generate("Other Mac");
  DeviceKeys deviceA = DeviceKeys::generate("Phone");
  DeviceKeys deviceB = DeviceKeys::generate("Watch");
};

const Parties& parties() {
  static const Parties kParties;
  return kParties;
}

const Bytes kPlaintext = bytesOf("approval request body");

Bytes macHash() { return parties().mac.identity().identityHash(); }

// A box from the Mac to device A under `label`.
Bytes sealFromMac(std::string_view label = kQAPRequestLabel) {
  return sealMessage(kPlaintext, label, *parties().mac.signer, macHash(),
                     parties().deviceA.identity());
}

// A box for device A whose signed inner part is `inner`, as a sender with `senderHash` would
// seal it: for inner parts that sealMessage never makes.
Bytes sealInner(ByteView inner, ByteView senderHash) {
  Bytes info = bytesOf(kQAPRequestLabel);
  const Bytes recipientHash = parties().deviceA.identity().identityHash();
  info.insert(info.end(), senderHash.begin(), senderHash.end());
  info.insert(info.end(), recipientHash.begin(), recipientHash.end());
  auto sender = crypto::hpkeSetupBaseSender(parties().deviceA.kem.publicKey(), info);
  WireWriter box;
  box.writeString(sender->encapsulatedKey);
  box.writeString(sender->context.seal({}, inner));
  return std::move(box).take();
}

Bytes innerPart(ByteView payload, ByteView signature) {
  WireWriter writer;
  writer.writeString(payload);
  writer.writeString(signature);
  return std::move(writer).take();
}

TEST(Sealing, OpensWhatTheExpectedSenderSealed) {
  const Bytes sealed = sealFromMac();
  WireReader reader(sealed);
  EXPECT_EQ(reader.readString().size(), crypto::kXWingCiphertextSize);
  EXPECT_EQ(reader.readString().size(), 4 + kPlaintext.size() + 4 + 64 + 16);
  EXPECT_TRUE(reader.isAtEnd());
  EXPECT_EQ(
      openMessage(sealed, kQAPRequestLabel, parties().mac.identity().signingKey, parties().deviceA),
      kPlaintext);
  EXPECT_NE(sealFromMac(), sealed) << "every seal uses fresh randomness";
}

struct OpenCase {
  const char* name;
  std::function<Bytes()> sealed;
  std::string_view label;
  std::function<Bytes()> expectedSender;  // the signing key the receiver expects
  const DeviceKeys& (*receiver)();
  Kind expected;
};

const DeviceKeys& deviceA() { return parties().deviceA; }
const DeviceKeys& deviceB() { return parties().deviceB; }
Bytes macKey() { return parties().mac.identity().signingKey; }
Bytes otherMacKey() { return parties().otherMac.identity().signingKey; }

Bytes withTrailingByte() {
  Bytes sealed = sealFromMac();
  sealed.push_back(0);
  return sealed;
}

Bytes oneByteShort() {
  Bytes sealed = sealFromMac();
  sealed.pop_back();
  return sealed;
}

Bytes fieldOverTheLimit() {
  Bytes sealed = sealFromMac();
  sealed[1] = 0x04;  // the first length becomes 0x00040460, more than 262144
  return sealed;
}

Bytes encapsulatedKeyOneByteShort() {
  const Bytes sealed = sealFromMac();
  WireReader reader(sealed);
  Bytes enc = reader.readString(), ciphertext = reader.readString();
  enc.pop_back();
  WireWriter writer;
  writer.writeString(enc);
  writer.writeString(ciphertext);
  return std::move(writer).take();
}

Bytes tamperedCiphertext() {
  Bytes sealed = sealFromMac();
  sealed[sealed.size() - 20] ^= 0x01;
  return sealed;
}

// Signed by the other Mac while claiming to be the Mac: the encryption opens (the info names the
// Mac), the signature does not verify.
Bytes signedByTheOtherMac() {
  return sealMessage(kPlaintext, kQAPRequestLabel, *parties().otherMac.signer, macHash(),
                     parties().deviceA.identity());
}

Bytes threeInnerFields() {
  Bytes inner = innerPart(kPlaintext,
                          parties().mac.signer->sign(bytesOf("QAP1 requestapproval request body")));
  inner.insert(inner.end(), {0, 0, 0, 0});
  return sealInner(inner, macHash());
}

Bytes shortSignature() {
  Bytes signature = parties().mac.signer->sign(bytesOf("QAP1 requestapproval request body"));
  signature.pop_back();
  return sealInner(innerPart(kPlaintext, signature), macHash());
}

// A compressed (33-byte) form of the Mac's key, with a box whose info matches it.
Bytes compressedMacKey() {
  Bytes key = macKey();
  key.resize(33);
  key[0] = 0x02 | (macKey().back() & 1);
  return key;
}

Bytes sealedForCompressedKey() {
  const Bytes key = compressedMacKey();
  return sealMessage(kPlaintext, kQAPRequestLabel, *parties().mac.signer, identityHash(key),
                     parties().deviceA.identity());
}

const OpenCase kOpenCases[] = {
    {"trailingByteAfterTheCiphertext", withTrailingByte, kQAPRequestLabel, macKey, deviceA,
     Kind::malformed},
    {"oneByteShort", oneByteShort, kQAPRequestLabel, macKey, deviceA, Kind::malformed},
    {"fieldOverTheLimit", fieldOverTheLimit, kQAPRequestLabel, macKey, deviceA, Kind::malformed},
    {"empty", [] { return Bytes(); }, kQAPRequestLabel, macKey, deviceA, Kind::malformed},
    {"boxForAOpenedByB", [] { return sealFromMac(); }, kQAPRequestLabel, macKey, deviceB,
     Kind::decryptionFailed},
    {"expectingAnotherSender", [] { return sealFromMac(); }, kQAPRequestLabel, otherMacKey, deviceA,
     Kind::decryptionFailed},
    {"anotherLabel", [] { return sealFromMac(); }, kQAPResponseLabel, macKey, deviceA,
     Kind::decryptionFailed},
    {"labelWithoutItsTrailingBlank", [] { return sealFromMac(kQAPPairingOfferLabel); },
     "QAP1 pairing offer", macKey, deviceA, Kind::decryptionFailed},
    {"encapsulatedKeyOneByteShort", encapsulatedKeyOneByteShort, kQAPRequestLabel, macKey, deviceA,
     Kind::decryptionFailed},
    {"tamperedCiphertext", tamperedCiphertext, kQAPRequestLabel, macKey, deviceA,
     Kind::decryptionFailed},
    {"signedByAnotherMac", signedByTheOtherMac, kQAPRequestLabel, macKey, deviceA,
     Kind::badSignature},
    {"innerPartWithThreeFields", threeInnerFields, kQAPRequestLabel, macKey, deviceA,
     Kind::malformed},
    {"signatureOneByteShort", shortSignature, kQAPRequestLabel, macKey, deviceA,
     Kind::badSignature},
    {"senderKeyNotUncompressed", sealedForCompressedKey, kQAPRequestLabel, compressedMacKey,
     deviceA, Kind::badSignature},
};

class SealingOpenFailure : public ::testing::TestWithParam<OpenCase> {};

TEST_P(SealingOpenFailure, Fails) {
  const OpenCase& c = GetParam();
  const Bytes sealed = c.sealed();
  EXPECT_EQ(failureOf([&] { openMessage(sealed, c.label, c.expectedSender(), c.receiver()); }),
            c.expected);
}

INSTANTIATE_TEST_SUITE_P(Cases, SealingOpenFailure, ::testing::ValuesIn(kOpenCases),
                         [](const auto& test) { return std::string(test.param.name); });

TEST(Sealing, TheTrailingBlankOfALabelCounts) {
  const Bytes sealed = sealFromMac(kQAPPairingOfferLabel);
  EXPECT_EQ(openMessage(sealed, kQAPPairingOfferLabel, macKey(), deviceA()), kPlaintext);
}

TEST(Sealing, ARecipientWithoutAUsableKEMKeyIsMalformed) {
  DeviceIdentity recipient = parties().deviceA.identity();
  recipient.kemKey.pop_back();
  EXPECT_EQ(failureOf([&] {
              sealMessage(kPlaintext, kQAPRequestLabel, *parties().mac.signer, macHash(),
                          recipient);
            }),
            Kind::malformed);
}

}  // namespace
}  // namespace quorvane
