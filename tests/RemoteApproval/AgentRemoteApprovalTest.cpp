#include <gtest/gtest.h>

#include "ActivityModel/InMemoryActivityLog.h"
#include "AgentEngine/Agent.h"
#include "AgentEngine/ClientWatch.h"
#include "AgentEngine/LocalApprover.h"
#include "AgentState/InMemoryLockStore.h"
#include "KeyStore/InMemorySecretStore.h"
#include "RemoteApproval/RacingApprover.h"
#include "RemoteApprovalFixture.h"
#include "support/SSHSig.h"

namespace quorvane {
namespace {

using testing::FarDevice;

// The agent's sign path with the racing approver in it: a rule sends Git commit signatures to
// paired devices, and the device's answer is what the agent does.
class AgentRemoteApprovalTest : public testing::RemoteApprovalTest {
 protected:
  std::shared_ptr<KeyStore> keys =
      std::make_shared<KeyStore>(std::make_shared<InMemorySecretStore>(), "", nullptr);
  KeyRecord key = keys->generate(KeyAlgorithm::ed25519, "laptop", clock->now());
  std::shared_ptr<LocalApprover> local = std::make_shared<LocalApprover>(*clock);
  std::shared_ptr<RemoteApprovalService> service = makeService();
  std::shared_ptr<InMemoryActivityLog> log = std::make_shared<InMemoryActivityLog>();
  std::unique_ptr<Agent> agent = makeAgent();
  ManualClientWatch watch;

  std::unique_ptr<Agent> makeAgent() {
    auto racing = std::make_shared<RacingApprover>(
        local, [this] { return service; },
        [this](const UUID& id, const ApprovalResult& result) { return local->answer(id, result); });
    PolicyEngine policy;
    policy.rules = {
        Rule::make("commits on my phone", Decision::askRemote, PurposeMatch::signature("git"))};
    return std::make_unique<Agent>(AgentServices{keys, racing, log, nullptr, nullptr,
                                                 std::make_shared<InMemoryLockStore>(), clock},
                                   policy);
  }

  SignInput commit() {
    SignInput input;
    input.keyBlob = key.publicKeyBlob;
    input.data = testing::sshSigSignedData("git", "sha512", Bytes(64, 7));
    input.purpose = SignPurpose::classify(input.data, key.publicKeyBlob);
    input.origin.appName = "git";
    input.origin.appIdentifier = "/usr/bin/git";
    input.origin.appTeamID = "system";
    input.origin.chainPaths = {"/usr/bin/git"};
    return input;
  }

  std::future<std::optional<Bytes>> signLater() {
    return std::async(std::launch::async, [this] { return agent->sign(commit(), watch); });
  }

  ActivityEntry lastEntry() { return log->entries({}).front(); }
};

TEST_F(AgentRemoteApprovalTest, FiveMinutesOnTheDeviceLetsTheNextCommitSignWithoutAsking) {
  FarDevice phone = pair("phone");
  auto first = signLater();
  const ApprovalRequestMessage seen = phone.nextRequest();
  EXPECT_EQ(seen.purpose, ApprovalPurpose::signature("git"));
  EXPECT_EQ(seen.keyName, "laptop");
  EXPECT_EQ(seen.scopes, (std::vector{qap::ApprovalScope::once, qap::ApprovalScope::fiveMinutes}));
  phone.send(macMailbox,
             phone.answerFor(seen, ApprovalDecision::approve, qap::ApprovalScope::fiveMinutes));
  EXPECT_TRUE(first.get());
  EXPECT_EQ(lastEntry().decidedBy, "phone");
  EXPECT_EQ(lastEntry().decision, "askRemote");

  EXPECT_TRUE(agent->sign(commit(), watch));  // inside the window: nobody is asked
  EXPECT_EQ(lastEntry().decision, "allow");
  EXPECT_TRUE(phone.receivedNothing());
}

TEST_F(AgentRemoteApprovalTest, ADenyAndBlockOnTheDeviceRefusesAndBlocksTheProgram) {
  FarDevice phone = pair("phone");
  auto first = signLater();
  phone.send(macMailbox, phone.answerFor(phone.nextRequest(), ApprovalDecision::denyAndBlock));
  EXPECT_FALSE(first.get());
  EXPECT_EQ(lastEntry().decidedBy, "phone");
  EXPECT_EQ(agent->activeBlocks().size(), 1u);
}

}  // namespace
}  // namespace quorvane
