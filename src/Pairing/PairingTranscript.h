#pragma once

// The values that tie one pairing together: the transcript and its hash, the device's commitment
// to its nonce, the reply's tag, the pairing identifier and the short authentication string
// (SAS). Pure functions of their inputs; docs/pairing.md gives the same definitions.

#include <string>

#include "Base/Bytes.h"
#include "Pairing/PairingOffer.h"
#include "Pairing/PairingReply.h"

namespace quorvane {

// string "QAP1 pairing v2" || string encodedOffer || string encodedReply (the whole reply, tag
// included). It holds both identities, both mailboxes with their send tokens, the pairing box,
// the offer's secret and the device's commitment.
Bytes pairingTranscript(const PairingOffer& offer, const PairingReply& reply);
// SHA-256 of the transcript (32 bytes).
Bytes pairingTranscriptHash(const PairingOffer& offer, const PairingReply& reply);

// SHA-256("QAP1 pairing nonce" || string secret || string deviceIdentityHash || string
// deviceNonce): binds the device to its nonce before it learns the computer's, without showing it.
Bytes pairingCommitment(ByteView secret, ByteView deviceIdentityHash, ByteView deviceNonce);

// HMAC-SHA256 under the offer's secret of "QAP1 pairing reply" || SHA-256(encodedOffer) ||
// encodePairingReplyUntagged(reply): only a holder of the offer can make it, and it covers the
// offer the device saw.
Bytes pairingReplyTag(const PairingOffer& offer, const PairingReply& reply);

// The first 16 bytes of the transcript hash; kept by both sides and named in unpair notices.
Bytes pairingIdentifier(ByteView transcriptHash);

// HMAC-SHA256 under the offer's secret of "QAP1 sas v2" || transcriptHash || macNonce ||
// deviceNonce.
Bytes shortAuthenticationTag(ByteView secret, ByteView transcriptHash, ByteView macNonce,
                             ByteView deviceNonce);

// The first four bytes of `tag`, big-endian, modulo 1,000,000, as six digits with a blank in the
// middle: "042 917". REQUIRES: tag holds at least 4 bytes.
std::string shortAuthenticationString(ByteView tag);

// Whether two tags are equal, in time that depends only on their lengths.
bool tagsMatch(ByteView a, ByteView b);

}  // namespace quorvane
