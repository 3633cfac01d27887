#include "ApprovalProto/ApprovalExchange.h"

#include <optional>

#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/QAPFailure.h"
#include "ApprovalProto/Sealing.h"

namespace quorvane {

Envelope sealApprovalRequest(const ApprovalRequestMessage& request, const DeviceKeys& mac,
                             const DeviceIdentity& device) {
  return Envelope{EnvelopeKind::approvalRequest, sealMessage(request.encode(), kQAPRequestLabel,
                                                             *mac.signer, request.macID, device)};
}

Envelope sealApprovalResponse(const ApprovalResponseMessage& response, const DeviceKeys& device,
                              const DeviceIdentity& mac) {
  return Envelope{
      EnvelopeKind::approvalResponse,
      sealMessage(response.encode(), kQAPResponseLabel, *device.signer, response.deviceID, mac)};
}

OpenedFromCandidate openFromCandidates(ByteView sealed, std::string_view label,
                                       std::span<const DeviceIdentity> candidates,
                                       const DeviceKeys& receiver) {
  QAPFailure::Kind remembered = QAPFailure::Kind::unknownDevice;
  for (size_t index = 0; index < candidates.size(); ++index) {
    try {
      return {openMessage(sealed, label, candidates[index].signingKey, receiver), index};
    } catch (const QAPFailure& failure) {
      if (failure.kind() == QAPFailure::Kind::badSignature)
        remembered = QAPFailure::Kind::badSignature;
    }
  }
  throw QAPFailure(remembered);
}

OpenedRequest openApprovalRequest(ByteView sealed, const DeviceKeys& device,
                                  std::span<const DeviceIdentity> pairedMacs) {
  OpenedFromCandidate opened = openFromCandidates(sealed, kQAPRequestLabel, pairedMacs, device);
  ApprovalRequestMessage request = ApprovalRequestMessage::decode(opened.payload);
  if (request.macID != pairedMacs[opened.senderIndex].identityHash())
    throw QAPFailure(QAPFailure::Kind::wrongMac);
  return {std::move(request), opened.senderIndex};
}

}  // namespace quorvane
