#pragma once

#include <string>

#include "Base/Bytes.h"
#include "Base/JSONReader.h"

namespace quorvane {

// The public identity of one party of the approval protocol (this machine, a phone, a watch or
// another computer), exchanged at pairing and kept in every pairing record.
struct DeviceIdentity {
  // The P-256 signing public key, X9.63 uncompressed: 0x04 || X || Y (65 bytes).
  Bytes signingKey;
  // The X-Wing public key (1216 bytes).
  Bytes kemKey;
  // The device's display name.
  std::string name;

  // The party's identifier everywhere in the protocol: SHA-256 of `signingKey`.
  Bytes identityHash() const;

  friend bool operator==(const DeviceIdentity&, const DeviceIdentity&) = default;
};

// SHA-256 of a signing public key: the identity hash of the party that owns it (32 bytes).
Bytes identityHash(ByteView signingKey);

// JSON form: an object with the keys "signingKey" and "kemKey" (standard base64 strings) and
// "name". Decoding fails with DecodingError: keyNotFound / valueNotFound / typeMismatch as the
// reader gives them, dataCorrupted for text that is not base64. Key sizes are not checked here;
// a key that is not usable fails sealing or verification.
JSON toJSON(const DeviceIdentity& identity);
DeviceIdentity decodeDeviceIdentity(const JSONReader& reader);

}  // namespace quorvane
