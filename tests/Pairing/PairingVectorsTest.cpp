// Recomputes every value of tests/data/pairing-vectors.json from the file's fixed inputs.
// With QUORVANE_WRITE_PAIRING_VECTORS=1 in the environment the test writes the outputs into the
// file instead (after a deliberate change of the format), and fails so that nobody forgets to
// review the difference.

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>

#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/Sealing.h"
#include "Base/Hex.h"
#include "Crypto/Hash.h"
#include "Pairing/PairingCode.h"
#include "Pairing/PairingSteps.h"
#include "Pairing/PairingTranscript.h"
#include "PairingTestSupport.h"
#include "support/VectorFile.h"

namespace quorvane {
namespace {

using nlohmann::json;
using testing::fixedDeviceKeys;
using testing::hexField;

constexpr const char* kVectorFile = "pairing-vectors.json";

SecureBytes secretField(const json& object, const std::string& key) {
  Bytes bytes = hexField(object, key);
  return SecureBytes::adopt(bytes);
}

std::string text(const json& object, const std::string& key) {
  return object.at(key).get<std::string>();
}

Bytes concatenated(std::string_view label, std::initializer_list<ByteView> parts) {
  Bytes out = bytesOf(label);
  for (ByteView part : parts) out.insert(out.end(), part.begin(), part.end());
  return out;
}

// Everything the two sides exchange in one pairing with the file's inputs.
struct VectorRun {
  DeviceKeys mac;
  DeviceKeys device;
  PairingCode code;
  PairingOffer offer;
  PairingReply reply;
  Bytes macNonce;
  Bytes deviceNonce;
  Bytes offerNonce;
};

VectorRun runOf(const json& in) {
  VectorRun run{fixedDeviceKeys(hexField(in, "macSigningScalar"), hexField(in, "macKemSeed"),
                                text(in, "macName")),
                fixedDeviceKeys(hexField(in, "deviceSigningScalar"), hexField(in, "deviceKemSeed"),
                                text(in, "deviceName")),
                {},
                {},
                {},
                hexField(in, "macNonce"),
                hexField(in, "deviceNonce"),
                hexField(in, "offerNonce")};
  run.code =
      PairingCode{text(in, "relayURL"), text(in, "offerBoxID"),
                  SecureBytes(bytesOf(text(in, "offerBoxSecret"))), secretField(in, "codeKey")};
  run.offer.relayURL = text(in, "relayURL");
  run.offer.macMailbox = text(in, "macMailboxID");
  run.offer.macSendToken = SecureBytes(bytesOf(text(in, "macSendToken")));
  run.offer.pairingMailbox = text(in, "replyBoxID");
  run.offer.pairingSendToken = SecureBytes(bytesOf(text(in, "replyBoxSendToken")));
  run.offer.macIdentity = run.mac.identity();
  run.offer.secret = secretField(in, "offerSecret");
  run.offer.expiresAt = in.at("expiresAt").get<uint64_t>();
  run.reply = makePairingReply(run.offer, run.device.identity(),
                               static_cast<DeviceKind>(in.at("deviceKind").get<int>()),
                               MailboxAddress{text(in, "deviceMailboxID"),
                                              SecureBytes(bytesOf(text(in, "deviceSendToken")))},
                               run.deviceNonce);
  return run;
}

json outputsOf(const VectorRun& run) {
  const DeviceIdentity mac = run.mac.identity();
  const DeviceIdentity device = run.device.identity();
  const Bytes offerPlaintext = encodePairingOffer(run.offer);
  const Bytes transcriptHash = pairingTranscriptHash(run.offer, run.reply);
  const Bytes challenge = encodePairingChallenge({transcriptHash, run.macNonce});
  const Bytes reveal = encodePairingReveal({transcriptHash, run.macNonce, run.deviceNonce});
  const Bytes sasTag = shortAuthenticationTag(run.offer.secret.view(), transcriptHash, run.macNonce,
                                              run.deviceNonce);
  const SecureBytes codeText = pairingCodeText(run.code);
  const Bytes macHash = mac.identityHash();
  const Bytes deviceHash = device.identityHash();
  return json{
      {"macSigningKey", hexEncode(mac.signingKey)},
      {"macKemKey", hexEncode(mac.kemKey)},
      {"macIdentityHash", hexEncode(macHash)},
      {"deviceSigningKey", hexEncode(device.signingKey)},
      {"deviceKemKey", hexEncode(device.kemKey)},
      {"deviceIdentityHash", hexEncode(deviceHash)},
      {"codeText", std::string(codeText.text())},
      {"offerPlaintext", hexEncode(offerPlaintext)},
      {"offerAssociatedData", hexEncode(pairingOfferAssociatedData(run.code.boxID))},
      {"offerEnvelope", hexEncode(sealPairingOffer(run.offer, run.code, run.offerNonce).encode())},
      {"deviceCommitment", hexEncode(run.reply.commitment)},
      {"replyTagInput",
       hexEncode(concatenated(kQAPPairingReplyLabel, {crypto::sha256(offerPlaintext),
                                                      encodePairingReplyUntagged(run.reply)}))},
      {"replyTag", hexEncode(run.reply.mac)},
      {"replyEnvelope",
       hexEncode(Envelope{EnvelopeKind::pairingReply, encodePairingReply(run.reply)}.encode())},
      {"transcript", hexEncode(pairingTranscript(run.offer, run.reply))},
      {"transcriptHash", hexEncode(transcriptHash)},
      {"pairingID", hexEncode(pairingIdentifier(transcriptHash))},
      {"challengePlaintext", hexEncode(challenge)},
      {"challengeSignatureInput", hexEncode(concatenated(kQAPPairingChallengeLabel, {challenge}))},
      {"challengeHPKEInfo",
       hexEncode(concatenated(kQAPPairingChallengeLabel, {macHash, deviceHash}))},
      {"revealPlaintext", hexEncode(reveal)},
      {"revealSignatureInput", hexEncode(concatenated(kQAPPairingRevealLabel, {reveal}))},
      {"revealHPKEInfo", hexEncode(concatenated(kQAPPairingRevealLabel, {deviceHash, macHash}))},
      {"sasInput", hexEncode(concatenated(kQAPShortAuthenticationStringLabel,
                                          {transcriptHash, run.macNonce, run.deviceNonce}))},
      {"sasTag", hexEncode(sasTag)},
      {"sas", shortAuthenticationString(sasTag)},
  };
}

class PairingVectorsTest : public ::testing::Test {
 protected:
  json file = testing::loadVectorFile(kVectorFile);
  VectorRun run = runOf(file.at("inputs"));
};

TEST_F(PairingVectorsTest, RecomputesEveryPublishedValue) {
  const json computed = outputsOf(run);
  if (std::getenv("QUORVANE_WRITE_PAIRING_VECTORS") != nullptr) {
    file["outputs"] = computed;
    std::ofstream(testing::testDataPath(kVectorFile)) << file.dump(2) << "\n";
    FAIL() << "wrote the outputs of " << kVectorFile << "; review the difference";
  }
  const json& published = file.at("outputs");
  EXPECT_EQ(published.size(), computed.size());
  for (const auto& [name, value] : computed.items())
    EXPECT_EQ(published.value(name, json()), value) << name;
}

TEST_F(PairingVectorsTest, PublishedMessagesDecodeToTheInputs) {
  const json& out = file.at("outputs");
  EXPECT_EQ(parsePairingCode(out.at("codeText").get<std::string>()), run.code);
  const auto offerEnvelope = Envelope::decode(hexField(out, "offerEnvelope"));
  ASSERT_TRUE(offerEnvelope);
  EXPECT_EQ(openPairingOffer(offerEnvelope->body, run.code), run.offer);
  const auto replyEnvelope = Envelope::decode(hexField(out, "replyEnvelope"));
  ASSERT_TRUE(replyEnvelope);
  EXPECT_EQ(openPairingReply(replyEnvelope->body, run.offer), run.reply);
}

// The challenge and reveal are sealed with fresh randomness: sealing them from the vector's state
// must open on the other side to exactly the published plaintexts.
TEST_F(PairingVectorsTest, SealedChallengeAndRevealOpenToThePublishedPlaintexts) {
  const json& out = file.at("outputs");
  const Envelope challenge = sealPairingChallenge(run.offer, run.reply, run.macNonce, run.mac);
  EXPECT_EQ(openMessage(challenge.body, kQAPPairingChallengeLabel, run.mac.identity().signingKey,
                        run.device),
            hexField(out, "challengePlaintext"));
  const PairingChallenge opened =
      openPairingChallenge(challenge.body, run.offer, run.reply, run.device);
  const Envelope reveal =
      sealPairingReveal(run.offer, run.reply, opened, run.deviceNonce, run.device);
  EXPECT_EQ(
      openMessage(reveal.body, kQAPPairingRevealLabel, run.device.identity().signingKey, run.mac),
      hexField(out, "revealPlaintext"));
  EXPECT_EQ(
      pairingSAS(
          run.offer, run.reply, run.macNonce,
          openPairingReveal(reveal.body, run.offer, run.reply, run.macNonce, run.mac).deviceNonce),
      out.at("sas").get<std::string>());
}

}  // namespace
}  // namespace quorvane
