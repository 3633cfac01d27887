#pragma once

// One pairing over the relay, driven from either side. The computer that asks for approvals
// (here called the computer, `mac` in names) shows a code; the approving device reads it and
// answers; both show the same six-digit code (SAS) for the user to compare, and store the pairing
// only when the user says they match. docs/pairing.md describes the messages and their order.
//
// Errors: PairingError for what the user must act on (see its kinds), QAPFailure for a changed,
// forged or misdirected message (the pairing is then abandoned), RelayError from the relay.
// Every wait is bounded by a deadline and ends early with RelayError transport on a stop request.

#include <functional>
#include <stop_token>
#include <string>

#include "ApprovalProto/DeviceKeys.h"
#include "Base/Date.h"
#include "Pairing/PairedDevice.h"
#include "Pairing/PairedMac.h"
#include "Pairing/PairingCode.h"
#include "Pairing/PairingOffer.h"
#include "Pairing/PairingReply.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// How long a code is valid after it is made.
inline constexpr double kPairingCodeLifetime = 300;
// How long the device waits for the computer's challenge after it has replied.
inline constexpr double kPairingChallengeWait = 60;

// The computer's state during one pairing.
struct MacPairing {
  PairingCode code;
  PairingOffer offer;
  MailboxCredentials replyBox;    // ephemeral: the device's reply and reveal arrive here
  MailboxCredentials offerBox;    // ephemeral: holds the offer; deleted once a reply arrives
  MailboxCredentials macMailbox;  // the computer's own mailbox
};

// The device's state while the user compares the SAS.
struct PendingPairing {
  PairingOffer offer;
  PairingReply reply;
  Bytes pairingID;
  std::string sas;
};

// The computer's result once the reply and reveal have been checked.
struct CompletedPairing {
  PairingReply reply;
  Bytes pairingID;
  std::string sas;
};

using NowFunction = std::function<Date()>;

// Makes the two ephemeral boxes and a send token of `macMailbox` for the device, and leaves the
// offer (valid for kPairingCodeLifetime from `now`) in the offer box. What was made is removed
// again when a later step fails. REQUIRES: relayURL begins with "https://" (the code only
// travels to an https relay).
MacPairing startMacPairing(RelayTransport& relay, const DeviceKeys& mac,
                           const MailboxCredentials& macMailbox, std::string relayURL, Date now,
                           std::stop_token stop = {});

// Waits for the device's reply (until `deadline`, else PairingError timedOut), checks it, deletes
// the offer box so that the code cannot be used again, sends the challenge to the device's
// mailbox and waits for the reveal. The first reply or reveal that fails its checks ends the
// pairing with its QAPFailure.
CompletedPairing awaitDevice(RelayTransport& relay, const MacPairing& pairing,
                             const DeviceKeys& mac, Date deadline, const NowFunction& now,
                             std::stop_token stop = {});

// The device's side: reads the offer (PairingError alreadyUsed when the box is gone or empty,
// unreadableCode when the code's key does not open it, expired past its time), replies with a new
// send token of `deviceMailbox`, waits up to kPairingChallengeWait for the challenge and sends
// the reveal. On failure the send token made here is revoked again.
PendingPairing joinPairing(RelayTransport& relay, const PairingCode& code, const DeviceKeys& device,
                           DeviceKind kind, const MailboxCredentials& deviceMailbox,
                           const NowFunction& now, std::stop_token stop = {});

// The records each side stores once the user confirmed the SAS.
PairedDevice pairedDeviceOf(const MacPairing& pairing, const CompletedPairing& completed, Date now);
PairedMac pairedMacOf(const PendingPairing& pending, Date now);

// The computer's clean-up: deletes both ephemeral boxes; with `revokeToken` (the user said no, or
// the pairing failed) also withdraws the send token made for the device. Relay failures are
// ignored: the relay drops ephemeral boxes by itself.
void closeMacPairing(RelayTransport& relay, const MacPairing& pairing, bool revokeToken);

// The device's clean-up when the user said no: withdraws the send token it gave the computer.
// A relay failure is ignored: the computer stored nothing either, so the token is never used.
void abandonJoinedPairing(RelayTransport& relay, const MailboxCredentials& deviceMailbox,
                          const PendingPairing& pending);

}  // namespace quorvane
