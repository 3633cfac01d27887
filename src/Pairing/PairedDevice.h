#pragma once

#include <optional>
#include <set>
#include <string>

#include "ApprovalProto/DeviceIdentity.h"
#include "Base/Date.h"
#include "Base/JSONReader.h"
#include "Pairing/DeviceKind.h"
#include "RelayClient/MailboxCredentials.h"

namespace quorvane {

// A device paired with this computer, as this computer keeps it: who it is, where requests for it
// go, and which keys it may approve for.
struct PairedDevice {
  DeviceIdentity identity;
  MailboxAddress mailbox;  // the device's own mailbox, where this computer sends requests
  Date pairedAt;
  // Fingerprints of the keys the device may approve for; absent: every key whose protection
  // allows approval elsewhere, also keys made later.
  std::optional<std::set<std::string>> allowedKeys;
  DeviceKind kind = DeviceKind::unknown;
  std::optional<Bytes> pairingID;
  // The send token of this computer's mailbox that was issued to the device (revoked on unpair).
  std::optional<SecureBytes> macSendToken;

  // Whether the device may approve for the key with this fingerprint.
  bool allows(std::string_view keyFingerprint) const;

  friend bool operator==(const PairedDevice&, const PairedDevice&) = default;
};

// JSON: {"identity", "mailbox", "pairedAt" (ISO 8601), "allowedKeys" (sorted strings, only when
// set), "kind" (the byte value), "pairingID" (base64, only when set), "macSendToken" (only when
// set)}. Decoding throws DecodingError for a missing or mistyped field, a kind over 3, a date or
// base64 text that does not parse.
JSON toJSON(const PairedDevice& device);
PairedDevice decodePairedDevice(const JSONReader& reader);

}  // namespace quorvane
