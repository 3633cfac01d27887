#include <iostream>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "AgentState/RelaySetting.h"
#include "ApprovalProto/Notices.h"
#include "Base/Base64.h"
#include "KeyStore/KeyStore.h"
#include "Pairing/PairedDevice.h"
#include "RelayClient/RelayClient.h"
#include "RelayClient/RelayError.h"
#include "RelayClient/RelayTexts.h"
#include "SSHWire/SSHPublicKey.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

struct DeviceOptions {
  bool json = false;
  std::string name;
  std::vector<std::string> keys;
  bool allKeys = false;
};
DeviceOptions options;

// A short, stable form of a device's identity for people: the first 16 base64 characters of its
// identity hash, as "SHA256:…" fingerprints look.
std::string identityFingerprint(const DeviceIdentity& identity) {
  return "SHA256:" + base64Encode(identity.identityHash()).substr(0, 16);
}

std::vector<PairedDevice>::iterator findDevice(std::vector<PairedDevice>& devices,
                                               const std::string& name) {
  auto found = std::ranges::find_if(
      devices, [&](const PairedDevice& device) { return device.identity.name == name; });
  if (found == devices.end())
    throw CommandFailure("no paired device is named " + name +
                         "; quorvane devices list shows them");
  return found;
}

// The key names a device may approve for, or "every key".
JSON allowedKeysJSON(const PairedDevice& device, const std::vector<KeyRecord>& records) {
  if (!device.allowedKeys) return "all";
  JSON names = JSON::array();
  for (const std::string& fingerprint : *device.allowedKeys) {
    auto record = std::ranges::find_if(records, [&](const KeyRecord& key) {
      return quorvane::fingerprint(key.publicKeyBlob) == fingerprint;
    });
    names.push_back(record == records.end() ? fingerprint + " (deleted key)" : record->name);
  }
  return names;
}

void listDevices() {
  SupportState support = SupportState::open();
  const std::vector<PairedDevice> devices = loadPairedDevices(support);
  const std::vector<KeyRecord> records = support.openKeyStore()->records();
  if (options.json) {
    JSON list = JSON::array();
    for (const PairedDevice& device : devices)
      list.push_back({{"name", device.identity.name},
                      {"kind", std::string(displayName(device.kind))},
                      {"pairedAt", device.pairedAt.iso8601()},
                      {"identity", identityFingerprint(device.identity)},
                      {"allowedKeys", allowedKeysJSON(device, records)}});
    printJSON(list);
    return;
  }
  if (devices.empty()) {
    std::cout << "No device is paired. Pair one with: quorvane devices pair\n";
    return;
  }
  for (const PairedDevice& device : devices) {
    const JSON allowed = allowedKeysJSON(device, records);
    std::string keys = "every key that paired devices may approve";
    if (allowed.is_array()) {
      keys.clear();
      for (const JSON& name : allowed) keys += (keys.empty() ? "" : ", ") + name.get<std::string>();
      if (keys.empty()) keys = "no key";
    }
    std::cout << device.identity.name << " (" << displayName(device.kind) << ", "
              << identityFingerprint(device.identity) << "), paired " << device.pairedAt.iso8601()
              << "\n  approves for: " << keys << "\n";
  }
}

// Tells the device that it is no longer paired and withdraws the send token it was given, so that
// it can post nothing more into this computer's mailbox. A relay that cannot be reached does not
// keep the device: the pairing ends here anyway, and the user is told what could not be done.
void notifyRemovedDevice(const SupportState& support, const PairedDevice& device) {
  const std::optional<RelaySetting> relay = loadRelaySetting(support);
  const std::optional<DeviceKeys> keys = loadDeviceKeys(*support.keychain);
  if (!relay || !keys) return;
  const std::optional<MailboxCredentials> mailbox =
      loadOwnMailbox(*support.keychain, relay->baseURL, MailboxRole::asking);
  RelayClient client(RelayEndpoint{relay->baseURL, relay->caFile, {}});
  try {
    const Bytes macID = keys->identity().identityHash();
    client.send(
        device.mailbox,
        sealUnpairNotice({macID, device.pairingID.value_or(Bytes{})}, true, *keys, device.identity),
        false);
    if (mailbox && device.macSendToken) client.revokeSendToken(*mailbox, *device.macSendToken);
  } catch (const RelayError& error) {
    std::cerr << "quorvane: the device could not be told (" << relayFailureText(error)
              << "); it stays able to post into this computer's mailbox until the relay is "
                 "reachable and you remove it again, but its answers are no longer accepted\n";
  }
}

void removeDevice() {
  SupportState support = SupportState::open();
  std::vector<PairedDevice> devices = loadPairedDevices(support);
  auto found = findDevice(devices, options.name);
  const PairedDevice removed = *found;
  devices.erase(found);
  savePairedDevices(support, devices);
  notifyAgentOfChange();
  notifyRemovedDevice(support, removed);
  std::cout << "Removed " << removed.identity.name << "; it can no longer approve.\n";
}

void allowKeys() {
  if (options.allKeys == !options.keys.empty())
    throw CommandFailure("name the keys with --key NAME (one or more), or give --all-keys");
  SupportState support = SupportState::open();
  std::vector<PairedDevice> devices = loadPairedDevices(support);
  PairedDevice& device = *findDevice(devices, options.name);
  if (options.allKeys) {
    device.allowedKeys.reset();
  } else {
    const std::vector<KeyRecord> records = support.openKeyStore()->records();
    std::set<std::string> fingerprints;
    for (const std::string& name : options.keys) {
      const KeyRecord key = findKey(records, name);
      if (key.protection == ProtectionClass::touchIDOnly ||
          key.protection == ProtectionClass::touchIDOrWatch)
        throw CommandFailure("the key " + key.name +
                             " needs your presence on this computer at every signature; paired "
                             "devices never approve for it");
      fingerprints.insert(quorvane::fingerprint(key.publicKeyBlob));
    }
    device.allowedKeys = std::move(fingerprints);
  }
  savePairedDevices(support, devices);
  notifyAgentOfChange();
  if (options.allKeys)
    std::cout << device.identity.name
              << " approves for every key that paired devices may approve, also keys made later.\n";
  else
    std::cout << device.identity.name << " approves for "
              << counted(static_cast<int64_t>(device.allowedKeys->size()), "key", "keys")
              << " only.\n";
}

}  // namespace

void addDevicesCommands(CLI::App& app) {
  CLI::App* devices = app.add_subcommand(
      "devices", "devices that approve for this computer: pair, list, remove, allow");
  devices->require_subcommand(1);
  addDevicesPairCommand(*devices);

  CLI::App* list = devices->add_subcommand("list", "the paired devices and the keys they approve");
  addJSONFlag(list, options.json);
  list->callback(listDevices);

  CLI::App* remove = devices->add_subcommand(
      "remove", "unpair a device: tell it, withdraw its access to the relay, forget it");
  remove->add_option("NAME", options.name, "the device's name (quorvane devices list)")->required();
  remove->callback(removeDevice);

  CLI::App* allow = devices->add_subcommand(
      "allow", "choose the keys a device may approve for (every key unless limited)");
  allow->add_option("NAME", options.name, "the device's name (quorvane devices list)")->required();
  allow->add_option("--key", options.keys, "a key the device may approve for (repeatable)");
  allow->add_flag("--all-keys", options.allKeys,
                  "every key that paired devices may approve, also keys made later");
  allow->callback(allowKeys);
}

}  // namespace quorvane::cli
