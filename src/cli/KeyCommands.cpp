#include <iostream>
#include <map>

#include "Base/Base64.h"
#include "KeyStore/KeyStoreError.h"
#include "Platform/Clock.h"
#include "SSHWire/SSHPublicKey.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

struct KeyType {
  KeyAlgorithm algorithm;
  int rsaBits;
};

const std::map<std::string, KeyType> kKeyTypes = {
    {"ed25519", {KeyAlgorithm::ed25519, 0}},      {"ecdsa-p256", {KeyAlgorithm::ecdsaP256, 0}},
    {"ecdsa-p384", {KeyAlgorithm::ecdsaP384, 0}}, {"rsa-3072", {KeyAlgorithm::rsa, 3072}},
    {"rsa-4096", {KeyAlgorithm::rsa, 4096}},
};

// The authorized_keys line of a record: type, base64 blob, name.
std::string publicKeyLine(const KeyRecord& record) {
  return std::string(rawValue(record.algorithm)) + " " + base64Encode(record.publicKeyBlob) + " " +
         record.name;
}

JSON describe(const KeyRecord& record) {
  JSON json = toJSON(record);
  json["fingerprint"] = fingerprint(record.publicKeyBlob);
  json["publicKey"] = publicKeyLine(record);
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
              << fingerprint(record.publicKeyBlob) << "  " << rawValue(record.protection)
              << "  created " << record.createdAt.iso8601() << "\n";
}

// quorvane keys generate NAME [--type TYPE] [--json]
void addGenerateCommand(CLI::App& keys) {
  static std::string generateName, generateType = "ed25519";
  static bool generateJSON = false;
  CLI::App* generate = keys.add_subcommand(
      "generate", "make a new key; its private half never leaves Quorvane's protected storage");
  generate->add_option("NAME", generateName, "the key's name, shown to servers as its comment")
      ->required();
  generate
      ->add_option("--type", generateType,
                   "ed25519 (default), ecdsa-p256, ecdsa-p384, rsa-3072 or rsa-4096")
      ->check(CLI::IsMember([] {
        std::vector<std::string> names;
        for (const auto& [name, type] : kKeyTypes) names.push_back(name);
        return names;
      }()));
  addJSONFlag(generate, generateJSON);
  generate->callback([] {
    const KeyType type = kKeyTypes.at(generateType);
    if (type.rsaBits != 0) std::cerr << "Making an RSA key takes a few seconds…\n";
    auto store = SupportState::open().openKeyStore();
    requireFreeName(store->records(), generateName,
                    "choose another name, or rename the existing key with: quorvane keys rename " +
                        generateName + " NEW-NAME");
    KeyRecord record = store->generate(type.algorithm, generateName, SystemClock().now(),
                                       type.rsaBits == 0 ? 3072 : type.rsaBits);
    notifyAgentOfChange();
    if (generateJSON) return printJSON(describe(record));
    std::cout << "Made the key “" << record.name << "” (" << fingerprint(record.publicKeyBlob)
              << "). Its public key, for servers and Git hosts:\n"
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
