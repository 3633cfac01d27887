#include <gtest/gtest.h>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "KeyStore/FixedSealingKey.h"
#include "Platform/InMemoryKeychain.h"
#include "agent/RemoteApprovalSetup.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

// Nothing listens on port 1 of loopback: a relay there refuses at once.
constexpr const char* kClosedRelay = "http://127.0.0.1:1/";

class RemoteApprovalSetupTest : public ::testing::Test {
 protected:
  testing::TemporaryDirectory folder;
  SupportState support{std::make_shared<InMemoryKeychain>(),
                       std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))), folder.path()};
  MailboxCredentials mailbox{"mailbox-1", SecureBytes(bytesOf("secret")),
                             SecureBytes(bytesOf("send token"))};

  PairedDevice device(const std::string& name, std::optional<SecureBytes> macSendToken = {}) {
    PairedDevice paired;
    paired.identity = DeviceKeys::generate(name).identity();
    paired.mailbox = {"mailbox-" + name, SecureBytes(bytesOf("token of " + name))};
    paired.macSendToken = std::move(macSendToken);
    return paired;
  }

  std::string missing() {
    std::string reason;
    EXPECT_FALSE(readRemoteApprovalSetup(support, reason));
    return reason;
  }
};

TEST_F(RemoteApprovalSetupTest, NamesTheFirstMissingPieceUntilEverythingIsThere) {
  EXPECT_EQ(missing(), "no relay is set (quorvane remote relay URL)");
  saveRelaySetting(support, RelaySetting{kClosedRelay, std::nullopt});
  EXPECT_EQ(missing(), std::string("this computer has not paired with a device through ") +
                           kClosedRelay + " (quorvane devices pair)");
  const DeviceKeys keys = loadOrCreateDeviceKeys(*support.keychain, "laptop");
  saveOwnMailbox(*support.keychain, kClosedRelay, MailboxRole::asking, mailbox);
  EXPECT_EQ(missing(), "no device is paired (quorvane devices pair)");

  savePairedDevices(support, {device("phone")});
  std::string reason;
  auto setup = readRemoteApprovalSetup(support, reason);
  ASSERT_TRUE(setup);
  EXPECT_EQ(setup->pairedDevices, 1u);
  EXPECT_EQ(setup->keys.identity(), keys.identity());
  EXPECT_EQ(setup->mailbox, mailbox);

  // Another device changes nothing the service depends on; another mailbox does.
  savePairedDevices(support, {device("phone"), device("tablet")});
  auto more = readRemoteApprovalSetup(support, reason);
  ASSERT_TRUE(more);
  EXPECT_TRUE(setup->sameAs(*more));
  more->mailbox.id = "mailbox-2";
  EXPECT_FALSE(setup->sameAs(*more));
}

TEST_F(RemoteApprovalSetupTest, ADeviceThatUnpairedItselfIsRemovedAndItsTokenWithdrawn) {
  saveRelaySetting(support, RelaySetting{kClosedRelay, std::nullopt});
  loadOrCreateDeviceKeys(*support.keychain, "laptop");
  saveOwnMailbox(*support.keychain, kClosedRelay, MailboxRole::asking, mailbox);
  const PairedDevice phone = device("phone", SecureBytes(bytesOf("issued to phone")));
  const PairedDevice tablet = device("tablet");
  savePairedDevices(support, {phone, tablet});
  std::string reason;
  const auto setup = readRemoteApprovalSetup(support, reason);
  ASSERT_TRUE(setup);

  std::vector<std::string> reports;
  const auto report = [&](const std::string& line) { reports.push_back(line); };
  EXPECT_EQ(forgetUnpairedDevice(support, *setup, Bytes(32, 9), report), std::nullopt);
  EXPECT_EQ(loadPairedDevices(support).size(), 2u);

  EXPECT_EQ(forgetUnpairedDevice(support, *setup, phone.identity.identityHash(), report), "phone");
  EXPECT_EQ(loadPairedDevices(support), std::vector{tablet});
  // The relay cannot be reached, so the withdrawal of the phone's send token is reported.
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].rfind("the send token of “phone” could not be withdrawn: ", 0), 0u);
}

}  // namespace
}  // namespace quorvane
