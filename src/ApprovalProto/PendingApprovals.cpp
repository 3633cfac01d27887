#include "ApprovalProto/PendingApprovals.h"

#include <algorithm>

#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/QAPFailure.h"

namespace quorvane {
namespace {

[[noreturn]] void reject(QAPFailure::Kind kind) { throw QAPFailure(kind); }

}  // namespace

void PendingApprovals::registerRequest(ApprovalRequestMessage request,
                                       std::set<Bytes> allowedDevices) {
  Bytes id = request.requestID;
  open.insert_or_assign(std::move(id), Entry{std::move(request), std::move(allowedDevices)});
}

PendingApprovals::Accepted PendingApprovals::accept(ByteView sealedBody, const DeviceKeys& mac,
                                                    std::span<const DeviceIdentity> candidates,
                                                    uint64_t nowMilliseconds) {
  OpenedFromCandidate opened = openFromCandidates(sealedBody, kQAPResponseLabel, candidates, mac);
  ApprovalResponseMessage response = ApprovalResponseMessage::decode(opened.payload);
  const Bytes deviceHash = candidates[opened.senderIndex].identityHash();
  if (response.deviceID != deviceHash) reject(QAPFailure::Kind::unknownDevice);
  if (response.macID != identityHash(mac.signer->publicKey())) reject(QAPFailure::Kind::wrongMac);
  if (answered.contains(response.requestID)) reject(QAPFailure::Kind::alreadyAnswered);
  auto entry = open.find(response.requestID);
  if (entry == open.end()) reject(QAPFailure::Kind::unknownRequest);
  const ApprovalRequestMessage& request = entry->second.request;
  if (!entry->second.allowedDevices.contains(deviceHash))
    reject(QAPFailure::Kind::notAllowedForKey);
  if (response.dataHash != request.dataHash) reject(QAPFailure::Kind::hashMismatch);
  if (nowMilliseconds >= request.expiresAt) {
    open.erase(entry);
    reject(QAPFailure::Kind::expired);
  }
  // now + allowance < decidedAt, written so that it cannot overflow.
  if (response.decidedAt > nowMilliseconds &&
      response.decidedAt - nowMilliseconds > kQAPClockAllowanceMilliseconds)
    reject(QAPFailure::Kind::clockSkew);
  if (std::ranges::find(request.scopes, response.scope) == request.scopes.end())
    reject(QAPFailure::Kind::scopeNotOffered);

  answered.insert_or_assign(response.requestID, request.expiresAt);
  open.erase(entry);
  return {std::move(response), opened.senderIndex};
}

void PendingApprovals::forget(const Bytes& requestID) { open.erase(requestID); }

void PendingApprovals::dropAnsweredExpiredBy(uint64_t nowMilliseconds) {
  std::erase_if(answered, [&](const auto& item) { return item.second <= nowMilliseconds; });
}

}  // namespace quorvane
