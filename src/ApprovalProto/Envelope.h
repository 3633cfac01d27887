#pragma once

#include <cstdint>
#include <optional>

#include "Base/Bytes.h"

namespace quorvane {

// What a relay message carries; the byte value is the case's position plus one.
enum class EnvelopeKind : uint8_t {
  pairingReply = 1,      // a device's reply to a pairing offer
  approvalRequest = 2,   // a sealed approval request
  approvalResponse = 3,  // a sealed approval response
  resolved = 4,          // notice that a request was settled elsewhere
  unpair = 5,            // an unpairing notice
  pairingOffer = 6,
  pairingChallenge = 7,
  pairingReveal = 8,
};

// One relay message: a kind byte, then the body to the end (the body may be empty).
struct Envelope {
  EnvelopeKind kind;
  Bytes body;

  Bytes encode() const;

  // Nothing for an empty buffer or one whose first byte is no kind: such a message is skipped,
  // which is not an error.
  static std::optional<Envelope> decode(ByteView bytes);

  friend bool operator==(const Envelope&, const Envelope&) = default;
};

}  // namespace quorvane
