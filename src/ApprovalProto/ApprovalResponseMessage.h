#pragma once

#include <cstdint>

#include "ApprovalProto/ApprovalScope.h"
#include "Base/Bytes.h"

namespace quorvane {

// A device's answer to an approval request, sealed back to the requesting machine.
struct ApprovalResponseMessage {
  Bytes requestID;  // the request answered
  Bytes macID;      // identity hash of the machine the answer is meant for
  Bytes deviceID;   // identity hash of the answering device
  ApprovalDecision decision = ApprovalDecision::deny;
  qap::ApprovalScope scope = qap::ApprovalScope::once;  // must be one of the request's scopes
  Bytes dataHash;                                       // copy of the request's dataHash
  uint64_t decidedAt = 0;  // milliseconds since 1970, by the device's clock
  bool fingerprintShown = false;

  // Binary form: uint32 version = 2, string requestID, string macID, string deviceID,
  // byte decision (0...2), byte scope (0/1), string dataHash, uint64 decidedAt,
  // byte fingerprintShown (0/1).
  Bytes encode() const;

  // QAPFailure unsupportedVersion for a version other than 2; malformed for a short buffer,
  // trailing bytes, an unknown decision or scope, a flag other than 0/1, or a string over the
  // wire limit.
  static ApprovalResponseMessage decode(ByteView bytes);

  friend bool operator==(const ApprovalResponseMessage&, const ApprovalResponseMessage&) = default;
};

}  // namespace quorvane
