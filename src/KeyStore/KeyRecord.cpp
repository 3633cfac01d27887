#include "KeyStore/KeyRecord.h"

#include <set>

#include "Base/Base64.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/WireError.h"

namespace quorvane {

JSON toJSON(const KeyRecord& record) {
  return {{"id", record.id.uuidString()},
          {"name", record.name},
          {"algorithm", toJSON(record.algorithm)},
          {"protection", toJSON(record.protection)},
          {"publicKeyBlob", base64Encode(record.publicKeyBlob)},
          {"createdAt", encodeDate(record.createdAt, DateEncoding::iso8601)}};
}

KeyRecord decodeKeyRecord(const JSONReader& reader) {
  KeyRecord record;
  record.id = reader.required("id").uuid();
  record.name = reader.required("name").string();
  record.algorithm = decodeKeyAlgorithm(reader.required("algorithm"));
  record.protection = decodeProtectionClass(reader.required("protection"));
  const JSONReader blobReader = reader.required("publicKeyBlob");
  auto blob = base64Decode(blobReader.string());
  if (!blob) blobReader.fail("Data is not valid base64.");
  try {
    if (SSHPublicKey::parse(*blob).type != rawValue(record.algorithm))
      blobReader.fail("The public key is not of the record's algorithm.");
  } catch (const WireError& error) {
    blobReader.fail(std::string("The public key blob does not parse: ") + error.what());
  }
  record.publicKeyBlob = std::move(*blob);
  record.createdAt = reader.required("createdAt").date(DateEncoding::iso8601);
  return record;
}

JSON toJSON(const std::vector<KeyRecord>& records) {
  JSON array = JSON::array();
  for (const KeyRecord& record : records) array.push_back(toJSON(record));
  return array;
}

std::vector<KeyRecord> decodeKeyRecords(const JSONReader& reader) {
  std::vector<KeyRecord> records;
  std::set<UUID> ids;
  for (const JSONReader& element : reader.array()) {
    records.push_back(decodeKeyRecord(element));
    if (!ids.insert(records.back().id).second) element.fail("Two records have the same id.");
  }
  return records;
}

}  // namespace quorvane
