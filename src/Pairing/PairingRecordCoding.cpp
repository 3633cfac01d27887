#include "Pairing/PairingRecordCoding.h"

#include "Base/Base64.h"
#include "RelayClient/MailboxCredentials.h"

namespace quorvane::pairingrecord {

void putOptional(JSON& json, std::string_view key, const std::optional<Bytes>& value) {
  if (value) json[std::string(key)] = base64Encode(*value);
}

void putOptional(JSON& json, std::string_view key, const std::optional<SecureBytes>& value) {
  if (value) json[std::string(key)] = std::string(value->text());
}

std::optional<Bytes> optionalBase64(const JSONReader& reader, std::string_view key) {
  auto field = reader.optional(key);
  if (!field) return std::nullopt;
  std::optional<Bytes> bytes = base64Decode(field->string());
  if (!bytes) field->fail("Encountered Data is not valid Base64.");
  return bytes;
}

std::optional<SecureBytes> optionalSecret(const JSONReader& reader, std::string_view key) {
  auto field = reader.optional(key);
  if (!field) return std::nullopt;
  JSON text = field->string();
  return takeSecretString(text);
}

}  // namespace quorvane::pairingrecord
