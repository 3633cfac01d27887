#include "Pairing/PairingSteps.h"

#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/QAPFailure.h"
#include "ApprovalProto/Sealing.h"
#include "Base/Check.h"
#include "Crypto/AESGCM.h"
#include "Pairing/PairingCoding.h"
#include "Pairing/PairingError.h"
#include "Pairing/PairingTranscript.h"

namespace quorvane {
namespace {

void requireValue(ByteView value, const char* why) {
  QUORVANE_CHECK(value.size() == pairingcoding::kValueSize, why);
}

void requireSameHash(ByteView expected, ByteView received) {
  if (!tagsMatch(expected, received)) throw QAPFailure(QAPFailure::Kind::hashMismatch);
}

}  // namespace

Bytes pairingOfferAssociatedData(std::string_view boxID) {
  std::string text(kQAPPairingOfferLabel);
  text += boxID;
  return bytesOf(text);
}

Envelope sealPairingOffer(const PairingOffer& offer, const PairingCode& code, ByteView nonce) {
  QUORVANE_CHECK(nonce.size() == crypto::kAESGCMNonceSize, "an offer's nonce is 12 bytes");
  Bytes plaintext = encodePairingOffer(offer);
  Bytes sealed =
      crypto::aesGCMSeal(code.key.view(), nonce, plaintext, pairingOfferAssociatedData(code.boxID));
  secureWipe(plaintext);
  Bytes body(nonce.begin(), nonce.end());
  body.insert(body.end(), sealed.begin(), sealed.end());
  return Envelope{EnvelopeKind::pairingOffer, std::move(body)};
}

PairingOffer openPairingOffer(ByteView body, const PairingCode& code) {
  if (body.size() < crypto::kAESGCMNonceSize + crypto::kAESGCMTagSize)
    throw PairingError(PairingError::Kind::unreadableCode);
  std::optional<Bytes> plaintext = crypto::aesGCMOpen(
      code.key.view(), body.first(crypto::kAESGCMNonceSize), body.subspan(crypto::kAESGCMNonceSize),
      pairingOfferAssociatedData(code.boxID));
  if (!plaintext) throw PairingError(PairingError::Kind::unreadableCode);
  SecureBytes owned = SecureBytes::adopt(*plaintext);
  PairingOffer offer = decodePairingOffer(owned.view());
  if (offer.relayURL != code.relayURL) throw QAPFailure(QAPFailure::Kind::malformed);
  return offer;
}

PairingReply makePairingReply(const PairingOffer& offer, const DeviceIdentity& device,
                              DeviceKind kind, const MailboxAddress& deviceMailbox,
                              ByteView deviceNonce) {
  requireValue(deviceNonce, "a device nonce is 32 bytes");
  PairingReply reply;
  reply.deviceIdentity = device;
  reply.kind = kind;
  reply.deviceMailbox = deviceMailbox.id;
  reply.deviceSendToken = deviceMailbox.sendToken;
  reply.commitment = pairingCommitment(offer.secret.view(), device.identityHash(), deviceNonce);
  reply.mac = pairingReplyTag(offer, reply);
  return reply;
}

PairingReply openPairingReply(ByteView body, const PairingOffer& offer) {
  PairingReply reply = decodePairingReply(body);
  if (!tagsMatch(pairingReplyTag(offer, reply), reply.mac))
    throw QAPFailure(QAPFailure::Kind::badSignature);
  return reply;
}

Envelope sealPairingChallenge(const PairingOffer& offer, const PairingReply& reply,
                              ByteView macNonce, const DeviceKeys& mac) {
  requireValue(macNonce, "a computer nonce is 32 bytes");
  const PairingChallenge challenge{pairingTranscriptHash(offer, reply),
                                   Bytes(macNonce.begin(), macNonce.end())};
  return Envelope{EnvelopeKind::pairingChallenge,
                  sealMessage(encodePairingChallenge(challenge), kQAPPairingChallengeLabel,
                              *mac.signer, offer.macIdentity.identityHash(), reply.deviceIdentity)};
}

PairingChallenge openPairingChallenge(ByteView body, const PairingOffer& offer,
                                      const PairingReply& reply, const DeviceKeys& device) {
  const Bytes payload =
      openMessage(body, kQAPPairingChallengeLabel, offer.macIdentity.signingKey, device);
  PairingChallenge challenge = decodePairingChallenge(payload);
  requireSameHash(pairingTranscriptHash(offer, reply), challenge.transcriptHash);
  return challenge;
}

Envelope sealPairingReveal(const PairingOffer& offer, const PairingReply& reply,
                           const PairingChallenge& challenge, ByteView deviceNonce,
                           const DeviceKeys& device) {
  requireValue(deviceNonce, "a device nonce is 32 bytes");
  const PairingReveal reveal{challenge.transcriptHash, challenge.macNonce,
                             Bytes(deviceNonce.begin(), deviceNonce.end())};
  return Envelope{EnvelopeKind::pairingReveal,
                  sealMessage(encodePairingReveal(reveal), kQAPPairingRevealLabel, *device.signer,
                              reply.deviceIdentity.identityHash(), offer.macIdentity)};
}

PairingReveal openPairingReveal(ByteView body, const PairingOffer& offer, const PairingReply& reply,
                                ByteView macNonce, const DeviceKeys& mac) {
  const Bytes payload =
      openMessage(body, kQAPPairingRevealLabel, reply.deviceIdentity.signingKey, mac);
  PairingReveal reveal = decodePairingReveal(payload);
  requireSameHash(pairingTranscriptHash(offer, reply), reveal.transcriptHash);
  requireSameHash(macNonce, reveal.macNonce);
  requireSameHash(reply.commitment,
                  pairingCommitment(offer.secret.view(), reply.deviceIdentity.identityHash(),
                                    reveal.deviceNonce));
  return reveal;
}

std::string pairingSAS(const PairingOffer& offer, const PairingReply& reply, ByteView macNonce,
                       ByteView deviceNonce) {
  return shortAuthenticationString(shortAuthenticationTag(
      offer.secret.view(), pairingTranscriptHash(offer, reply), macNonce, deviceNonce));
}

}  // namespace quorvane
