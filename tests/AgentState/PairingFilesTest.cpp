// The pairing records as each side keeps them: their JSON forms, the sealed files, and this
// computer's protocol keys and mailbox in the keychain.

#include <gtest/gtest.h>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/SealedFileError.h"
#include "Platform/InMemoryKeychain.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::TemporaryDirectory;
using testing::writeFile;

DeviceIdentity identityNamed(std::string name) {
  return DeviceIdentity{Bytes(65, 4), Bytes(1216, 7), std::move(name)};
}

PairedDevice fullDevice() {
  return PairedDevice{identityNamed("phone"),
                      MailboxAddress{"device-box", SecureBytes(bytesOf("device token"))},
                      Date{1796000000},
                      std::set<std::string>{"SHA256:b", "SHA256:a"},
                      DeviceKind::phone,
                      Bytes(16, 9),
                      SecureBytes(bytesOf("computer token"))};
}

PairedMac fullMac() {
  return PairedMac{identityNamed("build-box"),
                   MailboxAddress{"computer-box", SecureBytes(bytesOf("computer token"))},
                   "https://relay.example/",
                   Date{1796000000},
                   Bytes(16, 9),
                   SecureBytes(bytesOf("device token"))};
}

PairedDevice bareDevice() {
  PairedDevice device = fullDevice();
  device.allowedKeys.reset();
  device.pairingID.reset();
  device.macSendToken.reset();
  return device;
}

TEST(PairingRecordsJSONTest, RoundTripWithAndWithoutOptionalFields) {
  for (const PairedDevice& device : {fullDevice(), bareDevice()}) {
    const JSON json = parseJSON(toJSON(device).dump());
    EXPECT_EQ(decodePairedDevice(JSONReader(json)), device);
    EXPECT_EQ(json.contains("allowedKeys"), device.allowedKeys.has_value());
    EXPECT_EQ(json.contains("macSendToken"), device.macSendToken.has_value());
  }
  PairedMac bare = fullMac();
  bare.pairingID.reset();
  bare.deviceSendToken.reset();
  for (const PairedMac& mac : {fullMac(), bare})
    EXPECT_EQ(decodePairedMac(JSONReader(parseJSON(toJSON(mac).dump()))), mac);
}

TEST(PairingRecordsJSONTest, UsesTheDocumentedKeys) {
  const JSON json = toJSON(fullDevice());
  for (const char* key :
       {"identity", "mailbox", "pairedAt", "allowedKeys", "kind", "pairingID", "macSendToken"})
    EXPECT_TRUE(json.contains(key)) << key;
  EXPECT_EQ(json["kind"], 1);
  EXPECT_EQ(json["pairedAt"], "2026-11-30T00:53:20Z");
  const JSON mac = toJSON(fullMac());
  for (const char* key :
       {"identity", "mailbox", "relayURL", "pairedAt", "pairingID", "deviceSendToken"})
    EXPECT_TRUE(mac.contains(key)) << key;
}

TEST(PairingRecordsJSONTest, RefusesAnUnknownKindAndBadFields) {
  auto decodeWith = [](const std::function<void(JSON&)>& change) {
    JSON json = toJSON(fullDevice());
    change(json);
    decodePairedDevice(JSONReader(json));
  };
  EXPECT_THROW(decodeWith([](JSON& json) { json["kind"] = 4; }), DecodingError);
  EXPECT_THROW(decodeWith([](JSON& json) { json["pairingID"] = "not base64!"; }), DecodingError);
  EXPECT_THROW(decodeWith([](JSON& json) { json["pairedAt"] = "yesterday"; }), DecodingError);
  EXPECT_THROW(decodeWith([](JSON& json) { json.erase("mailbox"); }), DecodingError);
}

class PairingFilesTest : public ::testing::Test {
 protected:
  TemporaryDirectory folder;
  SupportState support{std::make_shared<InMemoryKeychain>(),
                       std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))), folder.path()};
};

TEST_F(PairingFilesTest, EachSideKeepsItsListInItsOwnSealedFile) {
  EXPECT_TRUE(loadPairedDevices(support).empty());
  EXPECT_TRUE(loadPairedMacs(support).empty());
  savePairedDevices(support, {fullDevice(), bareDevice()});
  savePairedMacs(support, {fullMac()});
  EXPECT_EQ(loadPairedDevices(support), (std::vector<PairedDevice>{fullDevice(), bareDevice()}));
  EXPECT_EQ(loadPairedMacs(support), std::vector<PairedMac>{fullMac()});
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "devices.json"));
  EXPECT_TRUE(std::filesystem::exists(folder.path() / "paired-computers.json"));
}

// The approving side's list put in place of the devices (or an old copy) is not read as devices.
TEST_F(PairingFilesTest, AnotherSealedFileInItsPlaceIsTampered) {
  savePairedDevices(support, {fullDevice()});
  savePairedMacs(support, {fullMac()});
  std::filesystem::copy_file(folder.path() / "paired-computers.json",
                             folder.path() / "devices.json",
                             std::filesystem::copy_options::overwrite_existing);
  try {
    loadPairedDevices(support);
    FAIL() << "another file was read as devices.json";
  } catch (const SealedFileError& error) {
    EXPECT_EQ(error.kind(), SealedFileError::Kind::tampered);
  }
}

TEST_F(PairingFilesTest, ProtocolKeysAndOwnMailboxAreKeptPerRelay) {
  InMemoryKeychain& keychain = *std::static_pointer_cast<InMemoryKeychain>(support.keychain);
  EXPECT_EQ(loadDeviceKeys(keychain), std::nullopt);
  const DeviceKeys made = loadOrCreateDeviceKeys(keychain, "build-box");
  EXPECT_EQ(loadOrCreateDeviceKeys(keychain, "other name").identity(), made.identity());

  const MailboxCredentials mailbox{"box", SecureBytes(bytesOf("secret")),
                                   SecureBytes(bytesOf("token"))};
  saveOwnMailbox(keychain, "https://one.example/", mailbox);
  EXPECT_EQ(loadOwnMailbox(keychain, "https://one.example/"), mailbox);
  EXPECT_EQ(loadOwnMailbox(keychain, "https://two.example/"), std::nullopt);
}

}  // namespace
}  // namespace quorvane
