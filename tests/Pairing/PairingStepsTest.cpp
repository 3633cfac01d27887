// One step at a time: what each side notices when a message was made by someone else, for
// another pairing, or with a nonce other than the one committed to.

#include <gtest/gtest.h>

#include "Base/Random.h"
#include "Pairing/PairingSteps.h"
#include "Pairing/PairingTranscript.h"
#include "PairingTestSupport.h"

namespace quorvane {
namespace {

using testing::failureOf;
using testing::pairingErrorOf;
using Failure = QAPFailure::Kind;

class PairingStepsTest : public ::testing::Test {
 protected:
  DeviceKeys mac = DeviceKeys::generate("build-box");
  DeviceKeys device = DeviceKeys::generate("laptop");
  DeviceKeys attacker = DeviceKeys::generate("attacker");
  PairingCode code{"https://relay.example/", "offer-box", SecureBytes(bytesOf("s")),
                   SecureBytes(crypto::randomBytes(32))};
  PairingOffer offer = offerFrom(mac);
  Bytes macNonce = crypto::randomBytes(32);
  Bytes deviceNonce = crypto::randomBytes(32);
  PairingReply reply = replyFrom(device, offer, deviceNonce);

  PairingOffer offerFrom(const DeviceKeys& keys) {
    return PairingOffer{code.relayURL,
                        "computer-box",
                        SecureBytes(bytesOf("computer token")),
                        "reply-box",
                        SecureBytes(bytesOf("reply token")),
                        keys.identity(),
                        SecureBytes(crypto::randomBytes(32)),
                        1796000000000};
  }
  static PairingReply replyFrom(const DeviceKeys& keys, const PairingOffer& toOffer,
                                ByteView nonce) {
    return makePairingReply(toOffer, keys.identity(), DeviceKind::phone,
                            MailboxAddress{"device-box", SecureBytes(bytesOf("device token"))},
                            nonce);
  }
};

TEST_F(PairingStepsTest, AnOfferOpensOnlyWithItsCodeAndBox) {
  const Envelope sealed = sealPairingOffer(offer, code, crypto::randomBytes(12));
  EXPECT_EQ(openPairingOffer(sealed.body, code), offer);
  PairingCode otherBox = code;
  otherBox.boxID = "another-box";
  EXPECT_EQ(pairingErrorOf([&] { openPairingOffer(sealed.body, otherBox); }),
            PairingError::Kind::unreadableCode);
  EXPECT_EQ(pairingErrorOf([&] { openPairingOffer(ByteView(sealed.body).first(27), code); }),
            PairingError::Kind::unreadableCode);
}

TEST_F(PairingStepsTest, AnOfferNamingAnotherRelayIsRefused) {
  PairingOffer elsewhere = offer;
  elsewhere.relayURL = "https://evil.example/";
  const Envelope sealed = sealPairingOffer(elsewhere, code, crypto::randomBytes(12));
  EXPECT_EQ(failureOf([&] { openPairingOffer(sealed.body, code); }), Failure::malformed);
}

TEST_F(PairingStepsTest, AReplyTaggedWithoutTheOffersSecretIsRefused) {
  EXPECT_EQ(openPairingReply(encodePairingReply(reply), offer), reply);
  // Someone without the code makes a reply to an offer of their own making.
  const PairingReply forged = replyFrom(attacker, offerFrom(mac), deviceNonce);
  EXPECT_EQ(failureOf([&] { openPairingReply(encodePairingReply(forged), offer); }),
            Failure::badSignature);
  // A relay that swaps the device's mailbox for its own breaks the tag.
  PairingReply redirected = reply;
  redirected.deviceMailbox = "relay-box";
  EXPECT_EQ(failureOf([&] { openPairingReply(encodePairingReply(redirected), offer); }),
            Failure::badSignature);
}

TEST_F(PairingStepsTest, TheDeviceNoticesThatTheComputerSawAnotherReply) {
  // Someone who saw the code answered too; the computer took their reply.
  const PairingReply theirs = replyFrom(attacker, offer, crypto::randomBytes(32));
  const Envelope challenge = sealPairingChallenge(offer, theirs, macNonce, mac);
  // Sealed to the attacker: the device cannot even open it.
  EXPECT_EQ(failureOf([&] { openPairingChallenge(challenge.body, offer, reply, device); }),
            Failure::decryptionFailed);
  // A computer that saw a changed copy of the device's own reply (same keys, other kind).
  PairingReply changed = reply;
  changed.kind = DeviceKind::watch;
  const Envelope skewed = sealPairingChallenge(offer, changed, macNonce, mac);
  EXPECT_EQ(failureOf([&] { openPairingChallenge(skewed.body, offer, reply, device); }),
            Failure::hashMismatch);
}

TEST_F(PairingStepsTest, AChallengeFromAnotherComputerIsRefused) {
  const PairingOffer attackersOffer = offerFrom(attacker);
  const Envelope challenge = sealPairingChallenge(attackersOffer, reply, macNonce, attacker);
  EXPECT_EQ(failureOf([&] { openPairingChallenge(challenge.body, offer, reply, device); }),
            Failure::decryptionFailed);
}

TEST_F(PairingStepsTest, ARevealWithAnotherNonceThanCommittedIsRefused) {
  const PairingChallenge challenge = openPairingChallenge(
      sealPairingChallenge(offer, reply, macNonce, mac).body, offer, reply, device);
  const Envelope honest = sealPairingReveal(offer, reply, challenge, deviceNonce, device);
  EXPECT_EQ(openPairingReveal(honest.body, offer, reply, macNonce, mac).deviceNonce, deviceNonce);

  const Envelope switched =
      sealPairingReveal(offer, reply, challenge, crypto::randomBytes(32), device);
  EXPECT_EQ(failureOf([&] { openPairingReveal(switched.body, offer, reply, macNonce, mac); }),
            Failure::hashMismatch);
  PairingChallenge otherNonce = challenge;
  otherNonce.macNonce = crypto::randomBytes(32);
  const Envelope echoedWrong = sealPairingReveal(offer, reply, otherNonce, deviceNonce, device);
  EXPECT_EQ(failureOf([&] { openPairingReveal(echoedWrong.body, offer, reply, macNonce, mac); }),
            Failure::hashMismatch);
}

TEST_F(PairingStepsTest, ARevealFromAnotherDeviceIsRefused) {
  const PairingChallenge challenge{pairingTranscriptHash(offer, reply), macNonce};
  const Envelope reveal = sealPairingReveal(offer, replyFrom(attacker, offer, deviceNonce),
                                            challenge, deviceNonce, attacker);
  EXPECT_EQ(failureOf([&] { openPairingReveal(reveal.body, offer, reply, macNonce, mac); }),
            Failure::decryptionFailed);
}

TEST_F(PairingStepsTest, TheCodeDependsOnEveryNonceAndTheSecret) {
  const std::string sas = pairingSAS(offer, reply, macNonce, deviceNonce);
  EXPECT_EQ(sas, pairingSAS(offer, reply, macNonce, deviceNonce));
  int differing = 0;
  for (int round = 0; round < 8; ++round)
    differing += pairingSAS(offer, reply, crypto::randomBytes(32), deviceNonce) != sas;
  EXPECT_GE(differing, 7);
}

}  // namespace
}  // namespace quorvane
