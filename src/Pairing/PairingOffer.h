#pragma once

#include <cstdint>
#include <string>

#include "ApprovalProto/DeviceIdentity.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// What the computer offers a device that holds its pairing code: who it is, where to reach it,
// where to answer, and the secret that keys the pairing's tags and short authentication string.
// It travels only encrypted under the code's key.
struct PairingOffer {
  std::string relayURL;
  std::string macMailbox;        // the computer's own mailbox id
  SecureBytes macSendToken;      // a send token of it, made for this device
  std::string pairingMailbox;    // the ephemeral reply box
  SecureBytes pairingSendToken;  // its send token
  DeviceIdentity macIdentity;
  SecureBytes secret;      // 32 random bytes
  uint64_t expiresAt = 0;  // milliseconds since 1970

  friend bool operator==(const PairingOffer&, const PairingOffer&) = default;
};

// uint32 2, string relayURL, string macMailbox, string macSendToken, string pairingMailbox,
// string pairingSendToken, identity (string signingKey, string kemKey, string name),
// string secret, uint64 expiresAt.
// REQUIRES (encode): secret is 32 bytes. Decoding throws QAPFailure unsupportedVersion for another
// version word and malformed for any other defect: a short buffer or trailing bytes, a text or
// token over 2048 bytes, a signing key other than 65 bytes, an X-Wing key other than 1216 bytes,
// a secret other than 32 bytes.
Bytes encodePairingOffer(const PairingOffer& offer);
PairingOffer decodePairingOffer(ByteView bytes);

}  // namespace quorvane
