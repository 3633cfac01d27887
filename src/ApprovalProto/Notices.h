#pragma once

#include <span>

#include "ApprovalProto/DeviceIdentity.h"
#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/Envelope.h"

namespace quorvane {

// The two notices besides requests and answers. Each is sealed (signed, then encrypted) like them,
// so that only the paired party can send it and only the addressee can read it.

// "I have removed our pairing": sent by a device (label "QAP1 unpair") or by the computer that
// asks for approvals (label "QAP1 unpair from mac") in an unpair envelope. Plaintext:
//   uint32 version = 2, string sender's identity hash, string pairing identifier (empty if none).
struct UnpairNotice {
  Bytes senderID;
  Bytes pairingID;
  friend bool operator==(const UnpairNotice&, const UnpairNotice&) = default;
};

// `fromMac`: the computer that asks for approvals sends it (else a device does).
Envelope sealUnpairNotice(const UnpairNotice& notice, bool fromMac, const DeviceKeys& sender,
                          const DeviceIdentity& recipient);

struct OpenedUnpairNotice {
  UnpairNotice notice;
  size_t senderIndex;  // into the candidates
};

// Opens an unpair envelope's body from one of `candidates` (the paired parties), as
// openFromCandidates does; then unsupportedVersion or malformed for a body that does not decode,
// and unknownDevice when the notice's senderID is not the identity hash of the party that sealed
// it.
OpenedUnpairNotice openUnpairNotice(ByteView sealed, bool fromMac, const DeviceKeys& receiver,
                                    std::span<const DeviceIdentity> candidates);

// "This request was settled elsewhere": sent by the asking computer (label "QAP1 resolved") in a
// resolved envelope to the devices that were asked. Plaintext:
//   uint32 version = 2, string requestID, string macID.
struct ResolvedNotice {
  Bytes requestID;
  Bytes macID;
  friend bool operator==(const ResolvedNotice&, const ResolvedNotice&) = default;
};

// Sealed with the sender hash `notice.macID`.
Envelope sealResolvedNotice(const ResolvedNotice& notice, const DeviceKeys& mac,
                            const DeviceIdentity& device);

struct OpenedResolvedNotice {
  ResolvedNotice notice;
  size_t macIndex;  // into the paired computers
};

// As openApprovalRequest: wrongMac unless macID is the hash of the computer that sealed it.
OpenedResolvedNotice openResolvedNotice(ByteView sealed, const DeviceKeys& device,
                                        std::span<const DeviceIdentity> pairedMacs);

}  // namespace quorvane
