#include "RelayClient/MailboxCredentials.h"

#include "Base/Check.h"

namespace quorvane {
namespace {

std::string textOf(const SecureBytes& secret) { return std::string(secret.text()); }

SecureBytes secretOf(const JSONReader& reader) {
  std::string text = reader.string();
  SecureBytes secret(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  secureWipe(text.data(), text.size());
  return secret;
}

}  // namespace

MailboxAddress addressOf(const MailboxCredentials& credentials) {
  return {credentials.id, credentials.sendToken};
}

JSON toJSON(const MailboxCredentials& credentials) {
  return {{"id", credentials.id},
          {"secret", textOf(credentials.secret)},
          {"sendToken", textOf(credentials.sendToken)}};
}

JSON toJSON(const MailboxAddress& address) {
  return {{"id", address.id}, {"sendToken", textOf(address.sendToken)}};
}

MailboxCredentials decodeMailboxCredentials(const JSONReader& reader) {
  return {reader.required("id").string(), secretOf(reader.required("secret")),
          secretOf(reader.required("sendToken"))};
}

MailboxAddress decodeMailboxAddress(const JSONReader& reader) {
  return {reader.required("id").string(), secretOf(reader.required("sendToken"))};
}

SecureBytes takeSecretString(JSON& value) {
  QUORVANE_CHECK(value.is_string(), "takeSecretString reads a JSON string");
  std::string& text = value.get_ref<std::string&>();
  SecureBytes secret(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  secureWipe(text.data(), text.size());
  return secret;
}

}  // namespace quorvane
