#pragma once

#include <string>

#include "ApprovalProto/DeviceIdentity.h"
#include "Base/SecureBytes.h"
#include "Pairing/DeviceKind.h"

namespace quorvane {

// The device's answer to an offer: who it is, where the computer reaches it, its commitment to
// the nonce it reveals later, and a tag under the offer's secret over the offer and the reply.
struct PairingReply {
  DeviceIdentity deviceIdentity;
  DeviceKind kind = DeviceKind::unknown;
  std::string deviceMailbox;    // the device's own mailbox id
  SecureBytes deviceSendToken;  // a send token of it, made for the computer
  Bytes commitment;             // 32 bytes; see pairingCommitment
  Bytes mac;                    // 32 bytes; HMAC-SHA256, see replyTag

  friend bool operator==(const PairingReply&, const PairingReply&) = default;
};

// uint32 2, identity (string signingKey, string kemKey, string name), byte kind (0...3),
// string deviceMailbox, string deviceSendToken, string commitment, string mac.
// Decoding throws QAPFailure as for the offer; a kind byte over 3 is malformed.
Bytes encodePairingReply(const PairingReply& reply);
PairingReply decodePairingReply(ByteView bytes);

// The encoding without its final field (string mac): what the reply's tag covers.
Bytes encodePairingReplyUntagged(const PairingReply& reply);

}  // namespace quorvane
