#pragma once

#include <span>
#include <string_view>

#include "ApprovalProto/ApprovalRequestMessage.h"
#include "ApprovalProto/ApprovalResponseMessage.h"
#include "ApprovalProto/DeviceIdentity.h"
#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/Envelope.h"

namespace quorvane {

// Sending and opening the two approval messages.

// The relay message that carries `request` from this machine to `device`: the encoded request
// sealed with "QAP1 request" (sender hash: the request's macID) in an approvalRequest envelope.
Envelope sealApprovalRequest(const ApprovalRequestMessage& request, const DeviceKeys& mac,
                             const DeviceIdentity& device);

// The relay message that carries `response` from a device to the machine `mac`: sealed with
// "QAP1 response" (sender hash: the response's deviceID) in an approvalResponse envelope.
Envelope sealApprovalResponse(const ApprovalResponseMessage& response, const DeviceKeys& device,
                              const DeviceIdentity& mac);

// A sealed body opened by one of several candidate senders.
struct OpenedFromCandidate {
  Bytes payload;
  size_t senderIndex;  // into the candidate list
};

// Tries the candidates in order and stops at the first whose signing key opens `sealed` under
// `label`. When none does, throws badSignature if some candidate got as far as the signature
// (its key opened the encryption), else unknownDevice (also for an empty list). Errors that are
// not QAPFailure pass through at once.
OpenedFromCandidate openFromCandidates(ByteView sealed, std::string_view label,
                                       std::span<const DeviceIdentity> candidates,
                                       const DeviceKeys& receiver);

struct OpenedRequest {
  ApprovalRequestMessage request;
  size_t macIndex;  // the paired machine that sent it
};

// A device opens a request body from one of its paired machines: openFromCandidates with
// "QAP1 request", decoding (unsupportedVersion, malformed), and wrongMac unless the request's
// macID is the identity hash of the machine that sealed it.
OpenedRequest openApprovalRequest(ByteView sealed, const DeviceKeys& device,
                                  std::span<const DeviceIdentity> pairedMacs);

}  // namespace quorvane
