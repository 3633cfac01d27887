#include "ApprovalProto/Notices.h"

#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/MessageCoding.h"
#include "ApprovalProto/Sealing.h"

namespace quorvane {
namespace {

// Two strings after the version word: the layout of both notices.
Bytes encodePair(ByteView first, ByteView second) {
  WireWriter writer;
  writer.writeUInt32(qapcoding::kMessageVersion);
  writer.writeString(first);
  writer.writeString(second);
  return std::move(writer).take();
}

std::pair<Bytes, Bytes> decodePair(ByteView bytes) {
  return qapcoding::decodeMessage(bytes, [](WireReader& reader) {
    Bytes first = reader.readString();
    Bytes second = reader.readString();
    return std::pair{std::move(first), std::move(second)};
  });
}

std::string_view unpairLabel(bool fromMac) {
  return fromMac ? kQAPUnpairFromMacLabel : kQAPUnpairLabel;
}

}  // namespace

Envelope sealUnpairNotice(const UnpairNotice& notice, bool fromMac, const DeviceKeys& sender,
                          const DeviceIdentity& recipient) {
  return Envelope{EnvelopeKind::unpair,
                  sealMessage(encodePair(notice.senderID, notice.pairingID), unpairLabel(fromMac),
                              *sender.signer, notice.senderID, recipient)};
}

OpenedUnpairNotice openUnpairNotice(ByteView sealed, bool fromMac, const DeviceKeys& receiver,
                                    std::span<const DeviceIdentity> candidates) {
  OpenedFromCandidate opened =
      openFromCandidates(sealed, unpairLabel(fromMac), candidates, receiver);
  auto [senderID, pairingID] = decodePair(opened.payload);
  if (senderID != candidates[opened.senderIndex].identityHash())
    throw QAPFailure(QAPFailure::Kind::unknownDevice);
  return {{std::move(senderID), std::move(pairingID)}, opened.senderIndex};
}

Envelope sealResolvedNotice(const ResolvedNotice& notice, const DeviceKeys& mac,
                            const DeviceIdentity& device) {
  return Envelope{EnvelopeKind::resolved,
                  sealMessage(encodePair(notice.requestID, notice.macID), kQAPResolvedLabel,
                              *mac.signer, notice.macID, device)};
}

OpenedResolvedNotice openResolvedNotice(ByteView sealed, const DeviceKeys& device,
                                        std::span<const DeviceIdentity> pairedMacs) {
  OpenedFromCandidate opened = openFromCandidates(sealed, kQAPResolvedLabel, pairedMacs, device);
  auto [requestID, macID] = decodePair(opened.payload);
  if (macID != pairedMacs[opened.senderIndex].identityHash())
    throw QAPFailure(QAPFailure::Kind::wrongMac);
  return {{std::move(requestID), std::move(macID)}, opened.senderIndex};
}

}  // namespace quorvane
