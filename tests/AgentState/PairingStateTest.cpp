#include <gtest/gtest.h>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/SealedFile.h"
#include "KeyStore/SealedFileError.h"
#include "Platform/InMemoryKeychain.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::TemporaryDirectory;

SecureBytes secret(std::string_view text) {
  return SecureBytes(ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size()));
}

class PairingStateTest : public ::testing::Test {
 protected:
  TemporaryDirectory folder;
  std::shared_ptr<InMemoryKeychain> keychain = std::make_shared<InMemoryKeychain>();
  SupportState support{keychain, std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))),
                       folder.path()};

  // A device with every optional field set, and one with none.
  std::vector<PairedDevice> devices() {
    const DeviceIdentity identity = DeviceKeys::generate("phone").identity();
    PairedDevice full{identity,
                      {"box-1", secret("token-1")},
                      Date{1'700'000'000},
                      std::set<std::string>{"SHA256:b", "SHA256:a"},
                      DeviceKind::phone,
                      Bytes{1, 2, 3},
                      secret("mac-token")};
    PairedDevice bare{DeviceKeys::generate("desk").identity(),
                      {"box-2", secret("token-2")},
                      Date{1'700'000'100},
                      std::nullopt,
                      DeviceKind::unknown,
                      std::nullopt,
                      std::nullopt};
    return {full, bare};
  }
};

TEST_F(PairingStateTest, PairedDevicesAndComputersRoundTripThroughTheirSealedFiles) {
  EXPECT_TRUE(loadPairedDevices(support).empty()) << "nothing paired before the first write";
  EXPECT_TRUE(loadPairedMacs(support).empty());

  const std::vector<PairedDevice> written = devices();
  savePairedDevices(support, written);
  EXPECT_EQ(loadPairedDevices(support), written);
  EXPECT_TRUE(written[0].allows("SHA256:a"));
  EXPECT_FALSE(written[0].allows("SHA256:c"));
  EXPECT_TRUE(written[1].allows("SHA256:c")) << "no list: every key";

  const std::vector<PairedMac> macs = {{written[0].identity,
                                        {"mac-box", secret("t")},
                                        "https://relay.example/",
                                        Date{5},
                                        Bytes{9},
                                        secret("device-token")},
                                       {written[1].identity,
                                        {"other", secret("u")},
                                        "https://relay.example/",
                                        Date{6},
                                        std::nullopt,
                                        std::nullopt}};
  savePairedMacs(support, macs);
  EXPECT_EQ(loadPairedMacs(support), macs);
  // Each list is sealed under its own purpose: one file cannot stand in for the other.
  std::filesystem::copy_file(folder.path() / kPairedDevicesFile, folder.path() / kPairedMacsFile,
                             std::filesystem::copy_options::overwrite_existing);
  EXPECT_THROW(loadPairedMacs(support), SealedFileError);
}

TEST_F(PairingStateTest, ARecordThatDoesNotDecodeMakesTheFileMalformed) {
  JSON device = toJSON(devices()[0]);
  for (auto change : std::vector<std::function<void(JSON&)>>{
           [](JSON& j) { j["kind"] = 4; },
           [](JSON& j) { j["pairingID"] = "not base64!"; },
           [](JSON& j) { j.erase("mailbox"); },
           [](JSON& j) { j["pairedAt"] = "yesterday"; },
       }) {
    JSON changed = device;
    change(changed);
    SealedFile::write(JSON::array({changed}), folder.path() / kPairedDevicesFile,
                      kPairedDevicesPurpose, *support.sealing);
    try {
      loadPairedDevices(support);
      ADD_FAILURE() << changed.dump();
    } catch (const SealedFileError& error) {
      EXPECT_EQ(error.kind(), SealedFileErrorKind::malformed) << changed.dump();
    }
  }
}

TEST_F(PairingStateTest, ProtocolKeysAreMadeOnceAndMailboxesAreKeptPerRelay) {
  EXPECT_FALSE(loadDeviceKeys(*keychain));
  const DeviceIdentity made = loadOrCreateDeviceKeys(*keychain, "laptop").identity();
  EXPECT_EQ(made.name, "laptop");
  EXPECT_EQ(loadOrCreateDeviceKeys(*keychain, "other name").identity(), made);
  const DeviceKeys loaded = *loadDeviceKeys(*keychain);
  EXPECT_EQ(loaded.identity(), made);
  // The loaded signer is the stored key, not only its public half.
  EXPECT_EQ(loaded.signer->sign(Bytes{1}).size(), 64u);

  const MailboxCredentials box{"id-1", secret("owner"), secret("send")};
  saveOwnMailbox(*keychain, "https://a.example/", MailboxRole::asking, box);
  EXPECT_EQ(loadOwnMailbox(*keychain, "https://a.example/", MailboxRole::asking), box);
  EXPECT_FALSE(loadOwnMailbox(*keychain, "https://b.example/", MailboxRole::asking));
  EXPECT_FALSE(loadOwnMailbox(*keychain, "https://a.example/", MailboxRole::approving))
      << "the approving side has a mailbox of its own";

  ASSERT_EQ(keychain->update(kDeviceKeysService, kDeviceKeysAccount, Bytes{'{', '}'}),
            kKeychainSuccess);
  EXPECT_THROW(loadDeviceKeys(*keychain), std::runtime_error);
}

}  // namespace
}  // namespace quorvane
