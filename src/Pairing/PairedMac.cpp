#include "Pairing/PairedMac.h"

#include "Pairing/PairingRecordCoding.h"

namespace quorvane {

JSON toJSON(const PairedMac& mac) {
  JSON json = {{"identity", toJSON(mac.identity)},
               {"mailbox", toJSON(mac.mailbox)},
               {"relayURL", mac.relayURL},
               {"pairedAt", encodeDate(mac.pairedAt, DateEncoding::iso8601)}};
  pairingrecord::putOptional(json, "pairingID", mac.pairingID);
  pairingrecord::putOptional(json, "deviceSendToken", mac.deviceSendToken);
  return json;
}

PairedMac decodePairedMac(const JSONReader& reader) {
  PairedMac mac;
  mac.identity = decodeDeviceIdentity(reader.required("identity"));
  mac.mailbox = decodeMailboxAddress(reader.required("mailbox"));
  mac.relayURL = reader.required("relayURL").string();
  mac.pairedAt = reader.required("pairedAt").date(DateEncoding::iso8601);
  mac.pairingID = pairingrecord::optionalBase64(reader, "pairingID");
  mac.deviceSendToken = pairingrecord::optionalSecret(reader, "deviceSendToken");
  return mac;
}

}  // namespace quorvane
