#pragma once

#include <optional>
#include <string>

#include "ApprovalProto/DeviceIdentity.h"
#include "Base/Date.h"
#include "Base/JSONReader.h"
#include "RelayClient/MailboxCredentials.h"

namespace quorvane {

// A computer whose requests this approving side answers, as the approving side keeps it.
struct PairedMac {
  DeviceIdentity identity;
  MailboxAddress mailbox;  // the computer's mailbox, where answers go
  std::string relayURL;    // the relay that computer uses
  Date pairedAt;
  std::optional<Bytes> pairingID;
  // The send token of this side's mailbox that was issued to the computer (revoked on unpair).
  std::optional<SecureBytes> deviceSendToken;

  friend bool operator==(const PairedMac&, const PairedMac&) = default;
};

// JSON: {"identity", "mailbox", "relayURL", "pairedAt" (ISO 8601), "pairingID" (base64, only when
// set), "deviceSendToken" (only when set)}. Decoding throws DecodingError as for PairedDevice.
JSON toJSON(const PairedMac& mac);
PairedMac decodePairedMac(const JSONReader& reader);

}  // namespace quorvane
