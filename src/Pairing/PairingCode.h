#pragma once

#include <string>
#include <string_view>

#include "Base/SecureBytes.h"

namespace quorvane {

// What the computer's pairing code carries: where the offer waits and the key that opens it.
// Whoever holds the code can read the offer, so it is shown only to the user (screen or QR code).
struct PairingCode {
  std::string relayURL;   // the relay's base URL; always "https://..."
  std::string boxID;      // the ephemeral mailbox that holds the offer
  SecureBytes boxSecret;  // that mailbox's owner credential (to read the offer)
  SecureBytes key;        // the 32-byte AES-256-GCM key of the offer

  friend bool operator==(const PairingCode&, const PairingCode&) = default;
};

// The text form starts with this prefix.
inline constexpr std::string_view kPairingCodePrefix = "quorvane:pair:";
// The code's key is exactly this long.
inline constexpr size_t kPairingKeySize = 32;

// "quorvane:pair:" followed by base64url without padding of
//   uint32 2, string relayURL, string boxID, string boxSecret, string key
// (SSH wire primitives). The result holds the secrets: callers show it and let it go.
// REQUIRES: code.key is 32 bytes and code.relayURL begins with "https://".
SecureBytes pairingCodeText(const PairingCode& code);

// Reads a code text; surrounding blanks and line ends are ignored. Throws
//   PairingError notACode         the text does not begin with "quorvane:pair:"
//   QAPFailure unsupportedVersion the version word is not 2
//   PairingError unreadableCode   anything else: a character outside the base64url alphabet
//                                 (so "=", "+" and "/" too), a short or long payload, a key that
//                                 is not 32 bytes (fields are read up to 262144 bytes), a relay
//                                 URL that does not begin with "https://"
PairingCode parsePairingCode(std::string_view text);

}  // namespace quorvane
