#include <gtest/gtest.h>

#include "AgentState/KeychainFlag.h"
#include "AgentState/KeychainLockStore.h"
#include "AgentState/RelaySetting.h"
#include "AgentState/RemotePause.h"
#include "AgentState/SealedHostPinStore.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/SealedFileError.h"
#include "Platform/InMemoryKeychain.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::TemporaryDirectory;
using testing::writeFile;

class SealedHostPinStoreTest : public ::testing::Test {
 protected:
  TemporaryDirectory folder;
  SupportState support{std::make_shared<InMemoryKeychain>(),
                       std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))), folder.path()};
};

TEST_F(SealedHostPinStoreTest, PinsSurviveInANewStore) {
  SealedHostPinStore(support).pin("github.com", "SHA256:one");
  EXPECT_EQ(SealedHostPinStore(support).pinnedFingerprint("github.com"), "SHA256:one");
  EXPECT_EQ(SealedHostPinStore(support).pinnedFingerprint("gitlab.com"), std::nullopt);
}

// The agent asks on every login; the file is read once and again only after a reload.
TEST_F(SealedHostPinStoreTest, KeepsWhatItReadUntilReload) {
  SealedHostPinStore agentPins(support);
  agentPins.pin("github.com", "SHA256:one");
  SealedHostPinStore(support).pin("github.com", "SHA256:two");
  EXPECT_EQ(agentPins.pinnedFingerprint("github.com"), "SHA256:one");
  agentPins.reload();
  EXPECT_EQ(agentPins.pinnedFingerprint("github.com"), "SHA256:two");
}

TEST_F(SealedHostPinStoreTest, ADamagedFileHoldsNoPinsAndIsReplacedByTheNextPin) {
  SealedHostPinStore(support).pin("github.com", "SHA256:one");
  writeFile(folder.path() / "hosts.json", "{}");
  SealedHostPinStore pins(support);
  EXPECT_EQ(pins.pinnedFingerprint("github.com"), std::nullopt);
  pins.pin("gitlab.com", "SHA256:two");
  EXPECT_EQ(SealedHostPinStore(support).pinnedFingerprint("gitlab.com"), "SHA256:two");
}

TEST_F(SealedHostPinStoreTest, TheRelaySettingIsSealedAndClearedWithoutRemovingTheFile) {
  EXPECT_EQ(loadRelaySetting(support), std::nullopt);
  const RelaySetting relay{"https://relay.example.com/", folder.path() / "ca.pem"};
  saveRelaySetting(support, relay);
  EXPECT_EQ(loadRelaySetting(support), relay);
  saveRelaySetting(support, RelaySetting{"http://127.0.0.1:8080/", std::nullopt});
  EXPECT_EQ(loadRelaySetting(support), (RelaySetting{"http://127.0.0.1:8080/", std::nullopt}));
  saveRelaySetting(support, std::nullopt);
  EXPECT_EQ(loadRelaySetting(support), std::nullopt);
  // Another program's edit, or the file taken away, is not silently a different relay.
  std::filesystem::remove(folder.path() / "relay.json");
  EXPECT_THROW(loadRelaySetting(support), SealedFileError);
  writeFile(folder.path() / "relay.json", R"({"baseURL":"https://evil.example/"})");
  EXPECT_THROW(loadRelaySetting(support), SealedFileError);
}

// The lock store and the remote-approval pause are the same kind of one-byte item.
TEST(KeychainFlagTest, LockAndPauseReadWhatWasWrittenAndOnlyOneByteOfOneIsOn) {
  InMemoryKeychain keychain;
  auto shared = std::make_shared<InMemoryKeychain>();
  KeychainLockStore lock(shared);
  EXPECT_FALSE(lock.isLocked());
  lock.setLocked(true);
  EXPECT_TRUE(lock.isLocked());
  lock.setLocked(false);
  EXPECT_FALSE(lock.isLocked());

  EXPECT_EQ(setRemoteApprovalPaused(keychain, true), kKeychainSuccess);
  EXPECT_TRUE(remoteApprovalPaused(keychain));
  const uint8_t two[] = {1, 1};
  ASSERT_EQ(keychain.update(kSettingsService, kRemotePausedAccount, ByteView(two)),
            kKeychainSuccess);
  EXPECT_FALSE(readKeychainFlag(keychain, kSettingsService, kRemotePausedAccount));
}

}  // namespace
}  // namespace quorvane
