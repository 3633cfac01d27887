#pragma once

// The steps of one pairing as pure functions: each makes or checks one message. Randomness comes
// in as arguments (the exchange passes fresh random values; the test vectors fixed ones), except
// the signatures and HPKE sealing of the challenge and the reveal, which are randomised.

#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/Envelope.h"
#include "Pairing/PairingCode.h"
#include "Pairing/PairingNonceMessages.h"
#include "Pairing/PairingOffer.h"
#include "Pairing/PairingReply.h"
#include "RelayClient/MailboxCredentials.h"

namespace quorvane {

// The associated data of the offer's encryption: "QAP1 pairing offer " || boxID.
Bytes pairingOfferAssociatedData(std::string_view boxID);

// A pairingOffer envelope whose body is nonce (12 bytes) || AES-256-GCM(code.key, nonce,
// encodePairingOffer(offer), pairingOfferAssociatedData(code.boxID)) || tag (16 bytes).
// REQUIRES: nonce is 12 bytes.
Envelope sealPairingOffer(const PairingOffer& offer, const PairingCode& code, ByteView nonce);

// The offer in a pairingOffer envelope's body. PairingError unreadableCode when it does not open
// with the code's key and box (the code does not belong to this box); QAPFailure for a body that
// opens but does not decode, or names another relay than the code.
PairingOffer openPairingOffer(ByteView body, const PairingCode& code);

// The device's reply with its commitment to `deviceNonce` and the tag under the offer's secret.
// REQUIRES: deviceNonce is 32 bytes.
PairingReply makePairingReply(const PairingOffer& offer, const DeviceIdentity& device,
                              DeviceKind kind, const MailboxAddress& deviceMailbox,
                              ByteView deviceNonce);

// The reply in a pairingReply envelope's body, checked against the offer: QAPFailure
// unsupportedVersion or malformed for a body that does not decode, badSignature when the tag does
// not match (a changed reply, or one made without the offer).
PairingReply openPairingReply(ByteView body, const PairingOffer& offer);

// The computer's challenge, sealed with label "QAP1 pairing challenge" from `mac` to the device.
// REQUIRES: macNonce is 32 bytes.
Envelope sealPairingChallenge(const PairingOffer& offer, const PairingReply& reply,
                              ByteView macNonce, const DeviceKeys& mac);

// The challenge opened by the device: QAPFailure from openMessage (not from the offer's
// computer: decryptionFailed or badSignature), from decoding, or hashMismatch when its transcript
// hash differs from the device's (the computer saw another offer or reply).
PairingChallenge openPairingChallenge(ByteView body, const PairingOffer& offer,
                                      const PairingReply& reply, const DeviceKeys& device);

// The device's reveal, sealed with label "QAP1 pairing reveal" from `device` to the computer.
Envelope sealPairingReveal(const PairingOffer& offer, const PairingReply& reply,
                           const PairingChallenge& challenge, ByteView deviceNonce,
                           const DeviceKeys& device);

// The reveal opened by the computer: QAPFailure from openMessage or decoding; hashMismatch when
// the transcript hash or the echoed nonce differ from the computer's, or the revealed nonce does
// not match the reply's commitment.
PairingReveal openPairingReveal(ByteView body, const PairingOffer& offer, const PairingReply& reply,
                                ByteView macNonce, const DeviceKeys& mac);

// The SAS both sides show, "042 917".
std::string pairingSAS(const PairingOffer& offer, const PairingReply& reply, ByteView macNonce,
                       ByteView deviceNonce);

}  // namespace quorvane
