#include "ApprovalProto/DeviceIdentity.h"

#include "Base/Base64.h"
#include "Crypto/Hash.h"

namespace quorvane {
namespace {

Bytes decodeBase64Field(const JSONReader& reader, std::string_view key) {
  const JSONReader field = reader.required(key);
  std::optional<Bytes> bytes = base64Decode(field.string());
  if (!bytes) field.fail("Encountered Data is not valid Base64.");
  return *bytes;
}

}  // namespace

Bytes identityHash(ByteView signingKey) { return crypto::sha256(signingKey); }

Bytes DeviceIdentity::identityHash() const { return quorvane::identityHash(signingKey); }

JSON toJSON(const DeviceIdentity& identity) {
  return {{"signingKey", base64Encode(identity.signingKey)},
          {"kemKey", base64Encode(identity.kemKey)},
          {"name", identity.name}};
}

DeviceIdentity decodeDeviceIdentity(const JSONReader& reader) {
  return DeviceIdentity{decodeBase64Field(reader, "signingKey"),
                        decodeBase64Field(reader, "kemKey"), reader.required("name").string()};
}

}  // namespace quorvane
