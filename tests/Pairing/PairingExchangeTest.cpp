// Whole pairings between a computer and a device over an in-memory relay, each side on its own
// thread as in real use, and a relay that changes messages on their way.

#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "Base/Random.h"
#include "Pairing/PairingExchange.h"
#include "Pairing/PairingSteps.h"
#include "Pairing/PairingTranscript.h"
#include "PairingTestSupport.h"
#include "RelayClient/InMemoryRelay.h"
#include "RelayClient/RelayError.h"

namespace quorvane {
namespace {

using testing::failureOf;
using testing::pairingErrorOf;

Date wallClock() {
  using namespace std::chrono;
  return Date{duration<double>(system_clock::now().time_since_epoch()).count()};
}

// Passes everything to an in-memory relay, letting a test change each envelope that is sent.
class TamperingRelay final : public RelayTransport {
 public:
  explicit TamperingRelay(InMemoryRelay& inner) : inner_(inner) {}
  std::function<void(Envelope&)> onSend;

  std::vector<std::string> created;

  MailboxCredentials createMailbox(bool ephemeral, std::stop_token stop) override {
    MailboxCredentials box = inner_.createMailbox(ephemeral, stop);
    created.push_back(box.id);
    return box;
  }
  SecureBytes createSendToken(const MailboxCredentials& box, std::stop_token stop) override {
    return inner_.createSendToken(box, stop);
  }
  void revokeSendToken(const MailboxCredentials& box, const SecureBytes& token,
                       std::stop_token stop) override {
    inner_.revokeSendToken(box, token, stop);
  }
  void registerPushToken(const MailboxCredentials& box, const PushRegistration& registration,
                         std::stop_token stop) override {
    inner_.registerPushToken(box, registration, stop);
  }
  void send(const MailboxAddress& address, const Envelope& envelope, bool push,
            std::stop_token stop) override {
    Envelope changed = envelope;
    if (onSend) onSend(changed);
    inner_.send(address, changed, push, stop);
  }
  std::vector<RelayMessage> fetch(const MailboxCredentials& box, bool wait,
                                  std::stop_token stop) override {
    return inner_.fetch(box, wait, stop);
  }
  void deleteMailbox(const MailboxCredentials& box, std::stop_token stop) override {
    inner_.deleteMailbox(box, stop);
  }

 private:
  InMemoryRelay& inner_;
};

// Flips the last byte of every envelope of `kind`.
std::function<void(Envelope&)> flipLastByteOf(EnvelopeKind kind) {
  return [kind](Envelope& envelope) {
    if (envelope.kind == kind) envelope.body.back() ^= 0x01;
  };
}

class PairingExchangeTest : public ::testing::Test {
 protected:
  InMemoryRelay memory{0.05};
  TamperingRelay relay{memory};
  DeviceKeys mac = DeviceKeys::generate("build-box");
  DeviceKeys device = DeviceKeys::generate("laptop");
  MailboxCredentials macMailbox = memory.createMailbox(false);
  MailboxCredentials deviceMailbox = memory.createMailbox(false);

  MacPairing start() {
    return startMacPairing(relay, mac, macMailbox, "https://relay.example/", wallClock());
  }

  // Runs the computer's side on another thread, stoppable.
  std::future<CompletedPairing> awaitOnThread(const MacPairing& pairing, double seconds = 10) {
    return std::async(std::launch::async, [this, &pairing, seconds] {
      return awaitDevice(relay, pairing, mac, wallClock() + seconds, wallClock,
                         macStop.get_token());
    });
  }

  PendingPairing join(const PairingCode& code, NowFunction now = wallClock) {
    return joinPairing(relay, code, device, DeviceKind::mac, deviceMailbox, now,
                       deviceStop.get_token());
  }

  std::stop_source macStop;
  std::stop_source deviceStop;
};

TEST_F(PairingExchangeTest, BothSidesShowTheSameCodeAndKeepMatchingRecords) {
  const MacPairing pairing = start();
  const SecureBytes codeText = pairingCodeText(pairing.code);
  auto completed = awaitOnThread(pairing);
  const PendingPairing pending = join(parsePairingCode(codeText.text()));
  const CompletedPairing done = completed.get();

  EXPECT_EQ(done.sas, pending.sas);
  EXPECT_EQ(done.sas.size(), 7u);
  EXPECT_EQ(done.pairingID, pending.pairingID);
  EXPECT_EQ(done.pairingID.size(), 16u);
  EXPECT_FALSE(memory.exists(pairing.offerBox.id)) << "a used code's box is deleted";

  const PairedDevice paired = pairedDeviceOf(pairing, done, Date{1000});
  EXPECT_EQ(paired.identity, device.identity());
  EXPECT_EQ(paired.kind, DeviceKind::mac);
  EXPECT_EQ(paired.mailbox.id, deviceMailbox.id);
  const PairedMac pairedMac = pairedMacOf(pending, Date{1000});
  EXPECT_EQ(pairedMac.identity, mac.identity());
  EXPECT_EQ(pairedMac.relayURL, "https://relay.example/");
  EXPECT_EQ(pairedMac.pairingID, paired.pairingID);
  // Each side can post into the other's mailbox with the token it was given.
  EXPECT_NO_THROW(memory.send(paired.mailbox, Envelope{EnvelopeKind::resolved, {1}}, false));
  EXPECT_NO_THROW(memory.send(pairedMac.mailbox, Envelope{EnvelopeKind::resolved, {1}}, false));

  closeMacPairing(relay, pairing, false);
  EXPECT_FALSE(memory.exists(pairing.replyBox.id));
  EXPECT_NO_THROW(memory.send(pairedMac.mailbox, Envelope{EnvelopeKind::resolved, {2}}, false));
}

TEST_F(PairingExchangeTest, SayingNoWithdrawsBothSendTokens) {
  const MacPairing pairing = start();
  auto completed = awaitOnThread(pairing);
  const PendingPairing pending = join(pairing.code);
  const CompletedPairing done = completed.get();
  closeMacPairing(relay, pairing, true);
  abandonJoinedPairing(relay, deviceMailbox, pending);
  for (const MailboxAddress& address :
       {pairedDeviceOf(pairing, done, Date{}).mailbox, pairedMacOf(pending, Date{}).mailbox})
    EXPECT_THROW(memory.send(address, Envelope{EnvelopeKind::resolved, {1}}, false), RelayError);
}

// Someone who saw the code can add an offer of their own to the box, but only after the
// computer's, which the device takes.
TEST_F(PairingExchangeTest, TheFirstOfferInTheBoxCounts) {
  const MacPairing pairing = start();
  const MailboxCredentials box{pairing.code.boxID, pairing.code.boxSecret, {}};
  PairingOffer theirs = pairing.offer;
  theirs.macIdentity = DeviceKeys::generate("attacker").identity();
  memory.send(MailboxAddress{box.id, memory.createSendToken(box)},
              sealPairingOffer(theirs, pairing.code, crypto::randomBytes(12)), false);
  auto completed = awaitOnThread(pairing);
  const PendingPairing pending = join(pairing.code);
  EXPECT_EQ(pending.offer.macIdentity, mac.identity());
  EXPECT_EQ(completed.get().sas, pending.sas);
}

// Messages left in the device's mailbox from before (an old challenge) do not disturb a pairing.
TEST_F(PairingExchangeTest, OldMessagesInTheDevicesMailboxAreIgnored) {
  memory.send(addressOf(deviceMailbox), Envelope{EnvelopeKind::pairingChallenge, Bytes(40, 1)},
              false);
  const MacPairing pairing = start();
  auto completed = awaitOnThread(pairing);
  const PendingPairing pending = join(pairing.code);
  EXPECT_EQ(completed.get().sas, pending.sas);
}

TEST_F(PairingExchangeTest, ASecondJoinFindsTheCodeUsed) {
  const MacPairing pairing = start();
  auto completed = awaitOnThread(pairing);
  join(pairing.code);
  completed.get();
  EXPECT_EQ(pairingErrorOf([&] { join(pairing.code); }), PairingError::Kind::alreadyUsed);
}

TEST_F(PairingExchangeTest, AnExpiredCodeIsRefusedAndTheTokenIsNotIssued) {
  const MacPairing pairing = start();
  const NowFunction late = [] { return wallClock() + kPairingCodeLifetime + 1; };
  try {
    join(pairing.code, late);
    FAIL() << "an expired code was accepted";
  } catch (const PairingError& error) {
    EXPECT_EQ(error.kind(), PairingError::Kind::expired);
    EXPECT_STREQ(error.what(), "The code expired. Start again and scan it within 5 minutes.");
  }
  EXPECT_TRUE(memory.stored(pairing.replyBox.id).empty()) << "no reply was sent";
}

TEST_F(PairingExchangeTest, ACodeForABoxTheRelayDoesNotHaveWasUsed) {
  const MacPairing pairing = start();
  PairingCode unknown = pairing.code;
  unknown.boxID = "no-such-box";
  EXPECT_EQ(pairingErrorOf([&] { join(unknown); }), PairingError::Kind::alreadyUsed);
  EXPECT_STREQ(PairingError(PairingError::Kind::alreadyUsed).what(),
               "This code was already used or has expired. Show a new one on the other computer.");
}

TEST_F(PairingExchangeTest, ACodeWithAnotherKeyCannotBeRead) {
  const MacPairing pairing = start();
  PairingCode wrongKey = pairing.code;
  wrongKey.key = SecureBytes(crypto::randomBytes(32));
  EXPECT_EQ(pairingErrorOf([&] { join(wrongKey); }), PairingError::Kind::unreadableCode);
}

TEST_F(PairingExchangeTest, AChangedOfferIsDetectedByTheDevice) {
  relay.onSend = flipLastByteOf(EnvelopeKind::pairingOffer);
  const MacPairing pairing = start();
  EXPECT_EQ(pairingErrorOf([&] { join(pairing.code); }), PairingError::Kind::unreadableCode);
}

TEST_F(PairingExchangeTest, AChangedReplyIsDetectedByTheComputer) {
  relay.onSend = flipLastByteOf(EnvelopeKind::pairingReply);
  const MacPairing pairing = start();
  auto completed = awaitOnThread(pairing);
  auto joined = std::async(std::launch::async, [&] { return join(pairing.code); });
  try {
    completed.get();
    FAIL() << "a changed reply was accepted";
  } catch (const QAPFailure& failure) {
    EXPECT_EQ(failure.kind(), QAPFailure::Kind::badSignature);
  }
  deviceStop.request_stop();
  EXPECT_THROW(joined.get(), RelayError);
}

TEST_F(PairingExchangeTest, AChangedChallengeIsDetectedByTheDevice) {
  relay.onSend = flipLastByteOf(EnvelopeKind::pairingChallenge);
  const MacPairing pairing = start();
  auto completed = awaitOnThread(pairing);
  EXPECT_EQ(failureOf([&] { join(pairing.code); }), QAPFailure::Kind::decryptionFailed);
  macStop.request_stop();
  EXPECT_THROW(completed.get(), RelayError);
  // The device withdrew the send token it had given the computer.
  EXPECT_THROW(memory.send(MailboxAddress{deviceMailbox.id, memory.createSendToken(macMailbox)},
                           Envelope{EnvelopeKind::resolved, {1}}, false),
               RelayError);
}

TEST_F(PairingExchangeTest, AChangedRevealIsDetectedByTheComputer) {
  relay.onSend = flipLastByteOf(EnvelopeKind::pairingReveal);
  const MacPairing pairing = start();
  auto completed = awaitOnThread(pairing);
  join(pairing.code);
  EXPECT_EQ(failureOf([&] { completed.get(); }), QAPFailure::Kind::decryptionFailed);
}

TEST_F(PairingExchangeTest, TheComputerStopsWaitingAtTheDeadline) {
  const MacPairing pairing = start();
  auto completed = awaitOnThread(pairing, 0.2);
  EXPECT_EQ(pairingErrorOf([&] { completed.get(); }), PairingError::Kind::timedOut);
  closeMacPairing(relay, pairing, true);
  EXPECT_FALSE(memory.exists(pairing.offerBox.id));
  EXPECT_FALSE(memory.exists(pairing.replyBox.id));
}

TEST_F(PairingExchangeTest, ARelayFailureWhileStartingLeavesNothingBehind) {
  relay.onSend = [](Envelope&) { throw RelayError::transport("offline"); };
  EXPECT_THROW(start(), RelayError);
  ASSERT_EQ(relay.created.size(), 2u);
  for (const std::string& id : relay.created) EXPECT_FALSE(memory.exists(id)) << id;
}

}  // namespace
}  // namespace quorvane
