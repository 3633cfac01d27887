#pragma once

#include <string>
#include <vector>

#include "Base/Bytes.h"
#include "Base/Date.h"
#include "Base/JSONReader.h"
#include "Base/UUID.h"
#include "KeyStore/KeyAlgorithm.h"
#include "KeyStore/ProtectionClass.h"

namespace quorvane {

// One of the user's keys as the list keeps it. The private material is not here: it is the
// secret stored under `id` in the secret store.
struct KeyRecord {
  UUID id;
  // The comment shown to SSH clients and the user.
  std::string name;
  KeyAlgorithm algorithm = KeyAlgorithm::ecdsaP256;
  ProtectionClass protection = ProtectionClass::imported;
  // The SSH public key blob, built once at creation or import.
  Bytes publicKeyBlob;
  // Whole seconds, as the ISO 8601 form keeps them.
  Date createdAt;

  friend bool operator==(const KeyRecord&, const KeyRecord&) = default;
};

// JSON form: an object with the field names as keys; "id" the UUID string, "algorithm" and
// "protection" their raw values, "publicKeyBlob" standard base64, "createdAt" ISO 8601.
JSON toJSON(const KeyRecord& record);

// Decodes one record; throws DecodingError. Beyond the types, the blob must be a public key blob
// of the record's algorithm (dataCorrupted otherwise), so a list that decodes can be served.
KeyRecord decodeKeyRecord(const JSONReader& reader);

// The list: a JSON array of records in stored order. Two records with the same id are
// dataCorrupted, since the id names the record's secret.
JSON toJSON(const std::vector<KeyRecord>& records);
std::vector<KeyRecord> decodeKeyRecords(const JSONReader& reader);

}  // namespace quorvane
