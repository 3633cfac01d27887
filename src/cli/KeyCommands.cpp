#include <unistd.h>

#include <iostream>
#include <map>
#include <memory>
#include <optional>

#include "Base/Base64.h"
#include "KeyStore/KeyStoreError.h"
#include "Platform/Clock.h"
#include "SSHWire/SSHPublicKey.h"
#include "TPM/TPMHardwareKeys.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"

namespace quorvane::cli {
namespace {

struct KeyType {
  KeyAlgorithm algorithm;
  int rsaBits;
};

// Software key types; "tpm" is the hardware one.
const std::map<std::string, KeyType> kKeyTypes = {
    {"ed25519", {KeyAlgorithm::ed25519, 0}},      {"ecdsa-p256", {KeyAlgorithm::ecdsaP256, 0}},
    {"ecdsa-p384", {KeyAlgorithm::ecdsaP384, 0}}, {"rsa-3072", {KeyAlgorithm::rsa, 3072}},
    {"rsa-4096", {KeyAlgorithm::rsa, 4096}},
};
constexpr const char* kTPMType = "tpm";

const std::map<std::string, ProtectionClass> kProtections = {
    {"approval", ProtectionClass::remoteApproval},
    {"pin", ProtectionClass::touchIDOnly},
};

bool isHardwareKey(const KeyRecord& record) {
  return record.protection != ProtectionClass::imported;
}

// Where the key lives and what lets it sign, in words.
std::string protectionText(const KeyRecord& record) {
  switch (record.protection) {
    case ProtectionClass::touchIDOnly:
    case ProtectionClass::touchIDOrWatch: return "in the TPM; signs with your PIN and approval";
    case ProtectionClass::remoteApproval: return "in the TPM; signs when you or a rule approve";
    case ProtectionClass::imported: break;
  }
  return "software key; signs when you or a rule approve";
}

// The authorized_keys line of a record: type, base64 blob, name.
std::string publicKeyLine(const KeyRecord& record) {
  return std::string(rawValue(record.algorithm)) + " " + base64Encode(record.publicKeyBlob) + " " +
         record.name;
}

JSON describe(const KeyRecord& record) {
  JSON json = toJSON(record);
  json["fingerprint"] = fingerprint(record.publicKeyBlob);
  json["publicKey"] = publicKeyLine(record);
  json["location"] = isHardwareKey(record) ? "tpm" : "software";
  json["protectionText"] = protectionText(record);
  return json;
}

void list(bool json) {
  auto records = SupportState::open().openKeyStore()->records();
  if (json) {
    JSON array = JSON::array();
    for (const KeyRecord& record : records) array.push_back(describe(record));
    printJSON(array);
    return;
  }
  if (records.empty()) {
    std::cout << "No keys yet. Make one with: quorvane keys generate NAME\n";
    return;
  }
  for (const KeyRecord& record : records)
    std::cout << record.name << "  " << rawValue(record.algorithm) << "  "
              << fingerprint(record.publicKeyBlob) << "  " << protectionText(record) << "  created "
              << record.createdAt.iso8601() << "\n";
}

// The TPM, or why it cannot be used: a CommandFailure that says what to check.
void requireTPM(TPMHardwareKeys& tpm) {
  if (tpm.available()) return;
  throw CommandFailure("no usable TPM at " + tpm.tcti() + ": " + tpm.problem().value_or("unknown") +
                       ". Nothing was made. Check that /dev/tpmrm0 exists and that you may use it "
                       "(the tss group; quorvane doctor shows both), or name another TPM in " +
                       TPMHardwareKeys::kTCTIVariable + ".");
}

// PINs of TPM keys: the TPM takes up to 32 bytes; fewer than 4 would be guessed within the
// tries that the TPM allows.
constexpr size_t kMinPINBytes = 4;
constexpr size_t kMaxPINBytes = 32;

// The new key's PIN: typed twice without echo on a terminal, else the first line of standard
// input (for scripts).
SecureBytes readNewPIN(const std::string& keyName) {
  std::optional<SecureBytes> pin;
  if (::isatty(STDIN_FILENO)) {
    pin = readSecretFromTerminal("PIN for the TPM key “" + keyName + "” (" +
                                 std::to_string(kMinPINBytes) + " to " +
                                 std::to_string(kMaxPINBytes) + " characters): ");
    std::optional<SecureBytes> again = readSecretFromTerminal("The same PIN again: ");
    if (pin && (!again || !(*again == *pin)))
      throw CommandFailure("the two PINs differ; nothing was made");
  } else {
    pin = SecureBytes::readLine(std::cin);
  }
  if (!pin || pin->size() < kMinPINBytes || pin->size() > kMaxPINBytes)
    throw CommandFailure("a PIN has " + std::to_string(kMinPINBytes) + " to " +
                         std::to_string(kMaxPINBytes) + " characters; nothing was made");
  return std::move(*pin);
}

// quorvane keys generate NAME [--type TYPE] [--protection approval|pin] [--json]
void addGenerateCommand(CLI::App& keys) {
  static std::string generateName, generateType, generateProtection;
  static bool generateJSON = false;
  CLI::App* generate = keys.add_subcommand(
      "generate",
      "make a new key: in the TPM when this machine has a usable one (it can never be copied "
      "from there), otherwise an Ed25519 software key");
  generate->add_option("NAME", generateName, "the key's name, shown to servers as its comment")
      ->required();
  generate
      ->add_option("--type", generateType,
                   "tpm (the default where a TPM is usable; insists on it), or a software key: "
                   "ed25519 (the default without a TPM), ecdsa-p256, ecdsa-p384, rsa-3072 or "
                   "rsa-4096")
      ->check(CLI::IsMember([] {
        std::vector<std::string> names{kTPMType};
        for (const auto& [name, type] : kKeyTypes) names.push_back(name);
        return names;
      }()));
  generate
      ->add_option("--protection", generateProtection,
                   "for a TPM key: approval (the default; your approval or a rule decides each "
                   "signature) or pin (the TPM itself also needs a PIN, asked with every approval; "
                   "read from standard input without a terminal)")
      ->check(CLI::IsMember(std::vector<std::string>{"approval", "pin"}));
  addJSONFlag(generate, generateJSON);
  generate->callback([] {
    const bool tpmAsked = generateType == kTPMType;
    if (!generateProtection.empty() && !generateType.empty() && !tpmAsked)
      throw CommandFailure("--protection is for TPM keys; a " + generateType +
                           " software key is protected by your approval");
    auto tpm = std::make_shared<TPMHardwareKeys>();
    auto store = SupportState::open().openKeyStore(tpm);
    requireFreeName(store->records(), generateName,
                    "choose another name, or rename the existing key with: quorvane keys rename " +
                        generateName + " NEW-NAME");
    std::optional<KeyRecord> made;
    if (tpmAsked || !generateProtection.empty()) {
      requireTPM(*tpm);
    } else if (generateType.empty() && !tpm->available()) {
      std::cerr << "No usable TPM (" << tpm->problem().value_or("unknown")
                << "): made an Ed25519 software key instead.\n";
      generateType = "ed25519";
    }
    if (generateType.empty() || tpmAsked) {
      const ProtectionClass protection =
          kProtections.at(generateProtection.empty() ? "approval" : generateProtection);
      std::optional<SecureBytes> pin;
      if (protection != ProtectionClass::remoteApproval) pin = readNewPIN(generateName);
      made = store->create(generateName, protection, SystemClock().now(), pin ? &*pin : nullptr);
    } else {
      const KeyType type = kKeyTypes.at(generateType);
      if (type.rsaBits != 0) std::cerr << "Making an RSA key takes a few seconds…\n";
      made = store->generate(type.algorithm, generateName, SystemClock().now(),
                             type.rsaBits == 0 ? 3072 : type.rsaBits);
    }
    const KeyRecord& record = *made;
    notifyAgentOfChange();
    if (generateJSON) return printJSON(describe(record));
    std::cout << "Made the key “" << record.name << "” (" << fingerprint(record.publicKeyBlob)
              << ", " << protectionText(record) << "). Its public key, for servers and Git hosts:\n"
              << publicKeyLine(record) << "\n";
  });
}

}  // namespace

void addKeyCommands(CLI::App& app) {
  CLI::App* keys = app.add_subcommand("keys", "list, make, show, rename and delete your SSH keys");
  keys->require_subcommand(1);
  addImportCommand(*keys);

  static bool listJSON = false;
  CLI::App* listCommand = keys->add_subcommand("list", "list your keys in the order ssh sees them");
  addJSONFlag(listCommand, listJSON);
  listCommand->callback([] { list(listJSON); });

  addGenerateCommand(*keys);

  static std::string publicName;
  CLI::App* show =
      keys->add_subcommand("public", "print a key's public key (authorized_keys form)");
  show->add_option("NAME", publicName, "name, fingerprint or id of the key")->required();
  show->callback([] {
    std::cout << publicKeyLine(findKey(SupportState::open().openKeyStore()->records(), publicName))
              << "\n";
  });

  static std::string renameFrom, renameTo;
  CLI::App* rename = keys->add_subcommand("rename", "give a key a new name");
  rename->add_option("NAME", renameFrom, "name, fingerprint or id of the key")->required();
  rename->add_option("NEW", renameTo, "the new name")->required();
  rename->callback([] {
    auto store = SupportState::open().openKeyStore();
    const KeyRecord key = findKey(store->records(), renameFrom);
    requireFreeName(store->records(), renameTo, "choose another name", &key.id);
    KeyRecord record = store->rename(key.id, renameTo);
    notifyAgentOfChange();
    std::cout << "Renamed to “" << record.name << "”.\n";
  });

  static std::string deleteName;
  static bool deleteYes = false;
  CLI::App* remove = keys->add_subcommand(
      "delete", "delete a key for good; servers that trust only this key will refuse you");
  remove->add_option("NAME", deleteName, "name, fingerprint or id of the key")->required();
  remove->add_flag("--yes", deleteYes, "do not ask for confirmation");
  remove->callback([] {
    auto store = SupportState::open().openKeyStore();
    KeyRecord record = findKey(store->records(), deleteName);
    confirmChange("Delete the key “" + record.name + "” (" + fingerprint(record.publicKeyBlob) +
                      ")? It cannot be undone.",
                  deleteYes, "delete a key", "nothing deleted");
    store->remove(record.id);
    notifyAgentOfChange();
    std::cout << "Deleted the key “" << record.name << "”.\n";
  });
}

}  // namespace quorvane::cli
