#include "ApprovalProto/Envelope.h"

namespace quorvane {

Bytes Envelope::encode() const {
  Bytes bytes;
  bytes.reserve(1 + body.size());
  bytes.push_back(static_cast<uint8_t>(kind));
  bytes.insert(bytes.end(), body.begin(), body.end());
  return bytes;
}

std::optional<Envelope> Envelope::decode(ByteView bytes) {
  if (bytes.empty() || bytes[0] < static_cast<uint8_t>(EnvelopeKind::pairingReply) ||
      bytes[0] > static_cast<uint8_t>(EnvelopeKind::pairingReveal))
    return std::nullopt;
  return Envelope{static_cast<EnvelopeKind>(bytes[0]), Bytes(bytes.begin() + 1, bytes.end())};
}

}  // namespace quorvane
