#include "Pairing/PairingExchange.h"

#include <optional>

#include "ApprovalProto/ProtocolTime.h"
#include "Base/Random.h"
#include "Crypto/AESGCM.h"
#include "Pairing/PairingCoding.h"
#include "Pairing/PairingError.h"
#include "Pairing/PairingSteps.h"
#include "Pairing/PairingTranscript.h"
#include "RelayClient/RelayError.h"

namespace quorvane {
namespace {

SecureBytes randomSecret(size_t size) {
  Bytes bytes = crypto::randomBytes(size);
  return SecureBytes::adopt(bytes);
}

// The next envelope of `kind` in `box`, fetching with waits until `deadline`; envelopes of other
// kinds are passed over. PairingError timedOut once the deadline has passed.
Envelope nextEnvelope(RelayTransport& relay, const MailboxCredentials& box, EnvelopeKind kind,
                      Date deadline, const NowFunction& now, std::stop_token stop) {
  while (now() < deadline) {
    for (RelayMessage& message : relay.fetch(box, true, stop))
      if (message.envelope.kind == kind) return std::move(message.envelope);
    if (stop.stop_requested()) throw RelayError::transport(kRelayCancelledDescription);
  }
  throw PairingError(PairingError::Kind::timedOut);
}

// Runs `cleanUp` when the guarded work fails, ignoring the clean-up's own failures.
template <typename Work, typename CleanUp>
auto undoingOnFailure(Work work, CleanUp cleanUp) {
  try {
    return work();
  } catch (...) {
    try {
      cleanUp();
    } catch (const std::exception&) {
    }
    throw;
  }
}

}  // namespace

MacPairing startMacPairing(RelayTransport& relay, const DeviceKeys& mac,
                           const MailboxCredentials& macMailbox, std::string relayURL, Date now,
                           std::stop_token stop) {
  MacPairing pairing;
  pairing.macMailbox = macMailbox;
  pairing.offerBox = relay.createMailbox(true, stop);
  return undoingOnFailure(
      [&] {
        pairing.replyBox = relay.createMailbox(true, stop);
        PairingOffer& offer = pairing.offer;
        offer.relayURL = relayURL;
        offer.macMailbox = macMailbox.id;
        offer.macSendToken = relay.createSendToken(macMailbox, stop);
        offer.pairingMailbox = pairing.replyBox.id;
        offer.pairingSendToken = pairing.replyBox.sendToken;
        offer.macIdentity = mac.identity();
        offer.secret = randomSecret(pairingcoding::kValueSize);
        offer.expiresAt = millisecondsSince1970(now + kPairingCodeLifetime);
        pairing.code = PairingCode{std::move(relayURL), pairing.offerBox.id,
                                   pairing.offerBox.secret, randomSecret(kPairingKeySize)};
        relay.send(
            addressOf(pairing.offerBox),
            sealPairingOffer(offer, pairing.code, crypto::randomBytes(crypto::kAESGCMNonceSize)),
            false, stop);
        return pairing;
      },
      [&] { closeMacPairing(relay, pairing, true); });
}

CompletedPairing awaitDevice(RelayTransport& relay, const MacPairing& pairing,
                             const DeviceKeys& mac, Date deadline, const NowFunction& now,
                             std::stop_token stop) {
  const Envelope replyEnvelope =
      nextEnvelope(relay, pairing.replyBox, EnvelopeKind::pairingReply, deadline, now, stop);
  PairingReply reply = openPairingReply(replyEnvelope.body, pairing.offer);
  relay.deleteMailbox(pairing.offerBox, stop);

  const Bytes macNonce = crypto::randomBytes(pairingcoding::kValueSize);
  relay.send(MailboxAddress{reply.deviceMailbox, reply.deviceSendToken},
             sealPairingChallenge(pairing.offer, reply, macNonce, mac), false, stop);

  const Envelope revealEnvelope =
      nextEnvelope(relay, pairing.replyBox, EnvelopeKind::pairingReveal, deadline, now, stop);
  const PairingReveal reveal =
      openPairingReveal(revealEnvelope.body, pairing.offer, reply, macNonce, mac);
  std::string sas = pairingSAS(pairing.offer, reply, macNonce, reveal.deviceNonce);
  return CompletedPairing{std::move(reply), pairingIdentifier(reveal.transcriptHash),
                          std::move(sas)};
}

PendingPairing joinPairing(RelayTransport& relay, const PairingCode& code, const DeviceKeys& device,
                           DeviceKind kind, const MailboxCredentials& deviceMailbox,
                           const NowFunction& now, std::stop_token stop) {
  const MailboxCredentials offerBox{code.boxID, code.boxSecret, {}};
  std::vector<RelayMessage> messages;
  try {
    messages = relay.fetch(offerBox, false, stop);
  } catch (const RelayError& error) {
    // The relay refuses a box it no longer has without saying whether it ever existed.
    if (error.kind() == RelayError::Kind::http && error.status() >= 400 && error.status() < 500)
      throw PairingError(PairingError::Kind::alreadyUsed);
    throw;
  }
  // The computer leaves its offer before it shows the code, so the first one is its own.
  const Envelope* offerEnvelope = nullptr;
  for (const RelayMessage& message : messages)
    if (message.envelope.kind == EnvelopeKind::pairingOffer) {
      offerEnvelope = &message.envelope;
      break;
    }
  if (offerEnvelope == nullptr) throw PairingError(PairingError::Kind::alreadyUsed);
  PairingOffer offer = openPairingOffer(offerEnvelope->body, code);
  if (millisecondsSince1970(now()) >= offer.expiresAt)
    throw PairingError(PairingError::Kind::expired);

  // Messages already in the device's mailbox predate this pairing: move past them, so that the
  // first challenge after the reply is the one that counts.
  relay.fetch(deviceMailbox, false, stop);
  const MailboxAddress address{deviceMailbox.id, relay.createSendToken(deviceMailbox, stop)};
  return undoingOnFailure(
      [&] {
        const Bytes deviceNonce = crypto::randomBytes(pairingcoding::kValueSize);
        PairingReply reply = makePairingReply(offer, device.identity(), kind, address, deviceNonce);
        relay.send(MailboxAddress{offer.pairingMailbox, offer.pairingSendToken},
                   Envelope{EnvelopeKind::pairingReply, encodePairingReply(reply)}, false, stop);
        const Envelope challengeEnvelope =
            nextEnvelope(relay, deviceMailbox, EnvelopeKind::pairingChallenge,
                         now() + kPairingChallengeWait, now, stop);
        const PairingChallenge challenge =
            openPairingChallenge(challengeEnvelope.body, offer, reply, device);
        relay.send(MailboxAddress{offer.pairingMailbox, offer.pairingSendToken},
                   sealPairingReveal(offer, reply, challenge, deviceNonce, device), false, stop);
        std::string sas = pairingSAS(offer, reply, challenge.macNonce, deviceNonce);
        Bytes pairingID = pairingIdentifier(challenge.transcriptHash);
        return PendingPairing{std::move(offer), std::move(reply), std::move(pairingID),
                              std::move(sas)};
      },
      [&] { relay.revokeSendToken(deviceMailbox, address.sendToken); });
}

PairedDevice pairedDeviceOf(const MacPairing& pairing, const CompletedPairing& completed,
                            Date now) {
  PairedDevice device;
  device.identity = completed.reply.deviceIdentity;
  device.mailbox = MailboxAddress{completed.reply.deviceMailbox, completed.reply.deviceSendToken};
  device.pairedAt = now;
  device.kind = completed.reply.kind;
  device.pairingID = completed.pairingID;
  device.macSendToken = pairing.offer.macSendToken;
  return device;
}

PairedMac pairedMacOf(const PendingPairing& pending, Date now) {
  PairedMac mac;
  mac.identity = pending.offer.macIdentity;
  mac.mailbox = MailboxAddress{pending.offer.macMailbox, pending.offer.macSendToken};
  mac.relayURL = pending.offer.relayURL;
  mac.pairedAt = now;
  mac.pairingID = pending.pairingID;
  mac.deviceSendToken = pending.reply.deviceSendToken;
  return mac;
}

void closeMacPairing(RelayTransport& relay, const MacPairing& pairing, bool revokeToken) {
  auto ignoringFailure = [](auto action) {
    try {
      action();
    } catch (const RelayError&) {
    }
  };
  if (!pairing.offerBox.id.empty()) ignoringFailure([&] { relay.deleteMailbox(pairing.offerBox); });
  if (!pairing.replyBox.id.empty()) ignoringFailure([&] { relay.deleteMailbox(pairing.replyBox); });
  if (revokeToken && !pairing.offer.macSendToken.empty())
    ignoringFailure([&] { relay.revokeSendToken(pairing.macMailbox, pairing.offer.macSendToken); });
}

void abandonJoinedPairing(RelayTransport& relay, const MailboxCredentials& deviceMailbox,
                          const PendingPairing& pending) {
  try {
    relay.revokeSendToken(deviceMailbox, pending.reply.deviceSendToken);
  } catch (const RelayError&) {
  }
}

}  // namespace quorvane
