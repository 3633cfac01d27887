#include "Pairing/PairedDevice.h"

#include "Pairing/PairingRecordCoding.h"

namespace quorvane {

bool PairedDevice::allows(std::string_view keyFingerprint) const {
  return !allowedKeys || allowedKeys->contains(std::string(keyFingerprint));
}

JSON toJSON(const PairedDevice& device) {
  JSON json = {{"identity", toJSON(device.identity)},
               {"mailbox", toJSON(device.mailbox)},
               {"pairedAt", encodeDate(device.pairedAt, DateEncoding::iso8601)},
               {"kind", static_cast<int>(device.kind)}};
  if (device.allowedKeys) json["allowedKeys"] = *device.allowedKeys;
  pairingrecord::putOptional(json, "pairingID", device.pairingID);
  pairingrecord::putOptional(json, "macSendToken", device.macSendToken);
  return json;
}

PairedDevice decodePairedDevice(const JSONReader& reader) {
  PairedDevice device;
  device.identity = decodeDeviceIdentity(reader.required("identity"));
  device.mailbox = decodeMailboxAddress(reader.required("mailbox"));
  device.pairedAt = reader.required("pairedAt").date(DateEncoding::iso8601);
  if (auto allowed = reader.optional("allowedKeys")) {
    std::vector<std::string> keys = allowed->strings();
    device.allowedKeys = std::set<std::string>(keys.begin(), keys.end());
  }
  const JSONReader kind = reader.required("kind");
  const int64_t kindValue = kind.int64();
  if (kindValue < 0 || kindValue > static_cast<int>(DeviceKind::mac))
    kind.fail("Cannot initialize DeviceKind from invalid value " + std::to_string(kindValue));
  device.kind = static_cast<DeviceKind>(kindValue);
  device.pairingID = pairingrecord::optionalBase64(reader, "pairingID");
  device.macSendToken = pairingrecord::optionalSecret(reader, "macSendToken");
  return device;
}

}  // namespace quorvane
