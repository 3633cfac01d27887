#include <gtest/gtest.h>

#include "AgentEngine/LocalApprover.h"
#include "RemoteApproval/RacingApprover.h"
#include "RemoteApprovalFixture.h"

namespace quorvane {
namespace {

using testing::eventually;
using testing::FarDevice;

class RacingApproverTest : public testing::RemoteApprovalTest {
 protected:
  std::shared_ptr<LocalApprover> local = std::make_shared<LocalApprover>(*clock);
  std::shared_ptr<RemoteApprovalService> service = makeService();

  // Settles the local request with a device's answer, as the agent does.
  RacingApprover racing(bool settleLocal = true) {
    RacingApprover::SettleLocal settle = nullptr;
    if (settleLocal)
      settle = [this](const UUID& id, const ApprovalResult& result) {
        return local->answer(id, result);
      };
    return RacingApprover(
        local, [this] { return service; }, settle);
  }

  std::future<ApprovalResult> raceLater(RacingApprover approver, const ApprovalRequest& asked,
                                        std::stop_token stop = {}) {
    return std::async(std::launch::async, [approver, asked, stop]() mutable {
      return approver.requestApproval(asked, stop);
    });
  }

  bool waitsLocally(const ApprovalRequest& asked) {
    return eventually([&] { return local->find(asked.id).has_value(); });
  }

  static std::string decidedBy(const ApprovalResult& result) {
    if (const auto* approved = std::get_if<ApprovalResult::Approved>(&result.value))
      return approved->by;
    if (const auto* denied = std::get_if<ApprovalResult::Denied>(&result.value)) return denied->by;
    return "";
  }
};

TEST_F(RacingApproverTest, ADeviceAnswerEndsTheLocalRequestAsAnsweredElsewhere) {
  FarDevice phone = pair("phone");
  std::vector<LocalApprover::Ending> endings;
  Mutex endingsMutex;
  const int token = local->subscribe([&](const LocalApprover::Event& event) {
    MutexLock lock(endingsMutex);
    if (!event.request) endings.push_back(event.ending);
  });
  const ApprovalRequest asked = request();
  auto result = raceLater(racing(), asked);
  ASSERT_TRUE(waitsLocally(asked));
  phone.send(macMailbox, phone.answerFor(phone.nextRequest(), ApprovalDecision::approve));
  EXPECT_EQ(decidedBy(result.get()), "phone");
  EXPECT_TRUE(local->pending().empty());
  local->unsubscribe(token);
  MutexLock lock(endingsMutex);
  EXPECT_EQ(endings, std::vector{LocalApprover::Ending::answered});
}

TEST_F(RacingApproverTest, WithoutSettlingADeviceAnswerCancelsTheLocalRequest) {
  FarDevice phone = pair("phone");
  const ApprovalRequest asked = request();
  auto result = raceLater(racing(/*settleLocal=*/false), asked);
  ASSERT_TRUE(waitsLocally(asked));
  phone.send(macMailbox, phone.answerFor(phone.nextRequest(), ApprovalDecision::denyAndBlock));
  const ApprovalResult decided = result.get();
  ASSERT_TRUE(std::holds_alternative<ApprovalResult::Denied>(decided.value));
  EXPECT_TRUE(std::get<ApprovalResult::Denied>(decided.value).block);
  EXPECT_TRUE(local->pending().empty());
}

TEST_F(RacingApproverTest, AnAnswerHereWithdrawsTheRequestFromTheDevices) {
  FarDevice phone = pair("phone");
  const ApprovalRequest asked = request();
  auto result = raceLater(racing(), asked);
  const ApprovalRequestMessage seen = phone.nextRequest();
  ASSERT_TRUE(waitsLocally(asked));
  ASSERT_TRUE(local->answer(asked.id, {ApprovalResult::Approved{ApprovalScope::once(), nullptr,
                                                                "you, with quorvane", true}}));
  EXPECT_EQ(decidedBy(result.get()), "you, with quorvane");
  EXPECT_EQ(service->openRequests(), 0u);
  EXPECT_EQ(phone.receive(EnvelopeKind::resolved).size(), 1u);
  // The device's late answer changes nothing.
  phone.send(macMailbox, phone.answerFor(seen, ApprovalDecision::deny));
}

TEST_F(RacingApproverTest, AnOfflineRelayLeavesTheDecisionToThisComputer) {
  pair("phone");
  relay->setUnreachable(true);
  const ApprovalRequest asked = request();
  auto result = raceLater(racing(), asked);
  ASSERT_TRUE(waitsLocally(asked));
  ASSERT_TRUE(eventually([&] { return service->offline(); }));
  ASSERT_TRUE(local->answer(asked.id, {ApprovalResult::Denied{false, "you"}}));
  EXPECT_EQ(decidedBy(result.get()), "you");
}

TEST_F(RacingApproverTest, NobodyAllowedForTheKeyLeavesTheDecisionToThisComputer) {
  FarDevice watch = pair("watch", std::set<std::string>{"SHA256:another key"});
  const ApprovalRequest asked = request();
  auto result = raceLater(racing(), asked);
  ASSERT_TRUE(waitsLocally(asked));
  ASSERT_TRUE(local->answer(asked.id, {ApprovalResult::Denied{false, "you"}}));
  EXPECT_EQ(decidedBy(result.get()), "you");
  EXPECT_TRUE(watch.receivedNothing());
}

TEST_F(RacingApproverTest, RequestsForThisComputerOnlyOrWithoutAServiceNeverGoRemote) {
  FarDevice phone = pair("phone");
  ApprovalRequest localOnly = request();
  localOnly.decision = Decision::askLocal;
  const ApprovalRequest remote = request();
  RacingApprover unavailable(local, [] { return nullptr; });
  for (auto [approver, asked] : {std::pair{racing(), localOnly}, std::pair{unavailable, remote}}) {
    auto result = raceLater(approver, asked);
    ASSERT_TRUE(waitsLocally(asked));
    ASSERT_TRUE(local->answer(asked.id, {ApprovalResult::Denied{false, "you"}}));
    EXPECT_EQ(decidedBy(result.get()), "you");
  }
  EXPECT_TRUE(phone.receivedNothing());
}

TEST_F(RacingApproverTest, TheCallersStopCancelsBothSides) {
  FarDevice phone = pair("phone");
  std::stop_source stop;
  const ApprovalRequest asked = request();
  auto result = raceLater(racing(), asked, stop.get_token());
  phone.nextRequest();
  ASSERT_TRUE(waitsLocally(asked));
  stop.request_stop();
  EXPECT_TRUE(std::holds_alternative<ApprovalResult::Cancelled>(result.get().value));
  EXPECT_TRUE(local->pending().empty());
  EXPECT_EQ(service->openRequests(), 0u);
  EXPECT_EQ(phone.receive(EnvelopeKind::resolved).size(), 1u);
}

}  // namespace
}  // namespace quorvane
