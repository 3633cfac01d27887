#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <span>

#include "ApprovalProto/ApprovalRequestMessage.h"
#include "ApprovalProto/ApprovalResponseMessage.h"
#include "ApprovalProto/DeviceIdentity.h"
#include "ApprovalProto/DeviceKeys.h"

namespace quorvane {

// How far ahead of this machine's clock an answer's decidedAt may lie.
inline constexpr uint64_t kQAPClockAllowanceMilliseconds = 30'000;

// This machine's record of the approval requests it sent, deciding which answer is accepted.
// One exchange is one request and at most one accepted answer. Not synchronised: its owner (the
// remote approval service) serialises access.
struct PendingApprovals {
  struct Entry {
    ApprovalRequestMessage request;
    // Identity hashes of the devices that may answer (those allowed for the request's key).
    std::set<Bytes> allowedDevices;

    friend bool operator==(const Entry&, const Entry&) = default;
  };

  struct Accepted {
    ApprovalResponseMessage response;
    size_t deviceIndex;  // into the candidate list given to accept
  };

  // Requests awaiting an answer, by requestID.
  std::map<Bytes, Entry> open;
  // Requests already settled, by requestID, with their expiresAt (so replays are recognised).
  std::map<Bytes, uint64_t> answered;

  // Opens a request for answers; a request with the same ID is replaced.
  void registerRequest(ApprovalRequestMessage request, std::set<Bytes> allowedDevices);

  // Accepts a sealed answer body, or throws the first failing check's QAPFailure, in this order:
  //   1. open it with "QAP1 response" from one of `candidates` (the paired devices, tried in
  //      order): unknownDevice, or badSignature when a device's key got as far as the signature;
  //   2. decode it: unsupportedVersion, malformed;
  //   3. deviceID is the identity hash of the device that sealed it, else unknownDevice;
  //   4. macID is this machine's identity hash, else wrongMac;
  //   5. the request was answered already: alreadyAnswered;
  //   6. the request is not open: unknownRequest;
  //   7. the device is allowed for the request, else notAllowedForKey;
  //   8. dataHash equals the request's, else hashMismatch;
  //   9. now is before expiresAt, else expired, and the request is removed;
  //  10. decidedAt is at most kQAPClockAllowanceMilliseconds after now, else clockSkew;
  //  11. scope is one of the request's scopes, else scopeNotOffered.
  // On success the request moves from `open` to `answered`. A rejected answer changes nothing,
  // except that `expired` removes the request. Errors that are not QAPFailure pass through.
  Accepted accept(ByteView sealedBody, const DeviceKeys& mac,
                  std::span<const DeviceIdentity> candidates, uint64_t nowMilliseconds);

  // Removes an open request (cancelled, or timed out without an answer).
  void forget(const Bytes& requestID);

  // Drops the settled requests whose deadline has passed; a late replay of their answers then
  // finds no open request (unknownRequest).
  void dropAnsweredExpiredBy(uint64_t nowMilliseconds);
};

}  // namespace quorvane
