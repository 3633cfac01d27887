#include "AgentState/ProtocolIdentity.h"

#include <unistd.h>

#include <stdexcept>

#include "ApprovalProto/SoftwareSigner.h"
#include "Base/Base64.h"
#include "Base/JSONReader.h"

namespace quorvane {
namespace {

// Wipes the text of every string member of `json` (private keys, mailbox secrets) before the
// value is let go.
void wipeStrings(JSON& json) {
  for (JSON& value : json)
    if (value.is_string()) takeSecretString(value);
}

// A JSON value read from a keychain item: nothing when the item is absent.
std::optional<JSON> readJSONItem(Keychain& keychain, std::string_view service,
                                 std::string_view account) {
  KeychainReadResult item = keychain.read(service, account);
  if (item.status == kKeychainItemNotFound) return std::nullopt;
  if (item.status != kKeychainSuccess)
    throw std::runtime_error("the keychain item " + std::string(service) +
                             " could not be read (status " + std::to_string(item.status) + ")");
  JSON json = JSON::parse(item.data.text(), nullptr, false);
  if (json.is_discarded())
    throw std::runtime_error("the keychain item " + std::string(service) + " is damaged");
  return json;
}

void writeJSONItem(Keychain& keychain, std::string_view service, std::string_view account,
                   JSON json) {
  std::string text = json.dump();
  SecureBytes data(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
  secureWipe(text.data(), text.size());
  wipeStrings(json);
  KeychainStatus status = keychain.update(service, account, data.view());
  if (status == kKeychainItemNotFound) status = keychain.add(service, account, data.view());
  if (status != kKeychainSuccess)
    throw std::runtime_error("the keychain item " + std::string(service) +
                             " could not be written (status " + std::to_string(status) + ")");
}

SecureBytes base64Secret(const JSONReader& reader) {
  std::string text = reader.string();
  std::optional<Bytes> bytes = base64Decode(text);
  secureWipe(text.data(), text.size());
  if (!bytes) reader.fail("Encountered Data is not valid Base64.");
  SecureBytes secret(*bytes);
  secureWipe(bytes->data(), bytes->size());
  return secret;
}

std::string mailboxAccount(std::string_view relayURL, MailboxRole role) {
  return (role == MailboxRole::approving ? "approving " : "") + std::string(relayURL);
}

}  // namespace

std::optional<DeviceKeys> loadDeviceKeys(Keychain& keychain) {
  std::optional<JSON> json = readJSONItem(keychain, kDeviceKeysService, kDeviceKeysAccount);
  if (!json) return std::nullopt;
  try {
    const JSONReader reader(*json);
    const SecureBytes signing = base64Secret(reader.required("signingKey"));
    const SecureBytes seed = base64Secret(reader.required("kemSeed"));
    const SecureBytes kemKey = base64Secret(reader.required("kemKey"));
    std::string name = reader.required("name").string();
    wipeStrings(*json);
    auto signer = std::make_shared<SoftwareSigner>(SoftwareSigner::fromPrivateKey(signing.view()));
    return DeviceKeys::restore(std::move(signer), seed.view(), kemKey.view(), std::move(name));
  } catch (const std::exception&) {
    wipeStrings(*json);
    throw std::runtime_error("this computer's approval keys in the keychain are damaged");
  }
}

DeviceKeys loadOrCreateDeviceKeys(Keychain& keychain, const std::string& name) {
  if (std::optional<DeviceKeys> keys = loadDeviceKeys(keychain)) return std::move(*keys);
  SoftwareSigner signer = SoftwareSigner::generate();
  crypto::XWingPrivateKey kem = crypto::XWingPrivateKey::generate();
  JSON json = {{"signingKey", base64Encode(signer.privateKey().view())},
               {"kemSeed", base64Encode(kem.seed().view())},
               {"kemKey", base64Encode(kem.publicKey().bytes())},
               {"name", name}};
  writeJSONItem(keychain, kDeviceKeysService, kDeviceKeysAccount, std::move(json));
  return DeviceKeys{std::make_shared<SoftwareSigner>(std::move(signer)), std::move(kem), name};
}

std::optional<MailboxCredentials> loadOwnMailbox(Keychain& keychain, std::string_view relayURL,
                                                 MailboxRole role) {
  std::optional<JSON> json =
      readJSONItem(keychain, kOwnMailboxService, mailboxAccount(relayURL, role));
  if (!json) return std::nullopt;
  try {
    MailboxCredentials mailbox = decodeMailboxCredentials(JSONReader(*json));
    wipeStrings(*json);
    return mailbox;
  } catch (const std::exception&) {
    wipeStrings(*json);
    throw std::runtime_error("this computer's relay mailbox in the keychain is damaged");
  }
}

void saveOwnMailbox(Keychain& keychain, std::string_view relayURL, MailboxRole role,
                    const MailboxCredentials& mailbox) {
  writeJSONItem(keychain, kOwnMailboxService, mailboxAccount(relayURL, role), toJSON(mailbox));
}

std::string thisComputerName() {
  char name[256] = {};
  if (::gethostname(name, sizeof name - 1) != 0 || name[0] == '\0') return "computer";
  return name;
}

}  // namespace quorvane
