#include <gtest/gtest.h>

#include "ApprovalProto/QAPFailure.h"
#include "RemoteApprovalFixture.h"

namespace quorvane {
namespace {

using Status = RemoteApprovalService::Asked::Status;
using testing::eventually;
using testing::FarDevice;

class RemoteApprovalServiceTest : public testing::RemoteApprovalTest {};

const ApprovalResult::Approved& approved(const RemoteApprovalService::Asked& asked) {
  EXPECT_EQ(asked.status, Status::asked);
  const auto* result = std::get_if<ApprovalResult::Approved>(&asked.result.value);
  if (result == nullptr) throw std::runtime_error("not approved");
  return *result;
}

TEST_F(RemoteApprovalServiceTest, SendsTheRequestAndAnApprovalOnceComesBack) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  const ApprovalRequest asked = request();
  auto answer = testing::askLater(*service, asked);

  const ApprovalRequestMessage seen = phone.nextRequest();
  EXPECT_EQ(seen.requestID, Bytes(asked.id.bytes.begin(), asked.id.bytes.end()));
  EXPECT_EQ(seen.macID, mac.identity().identityHash());
  EXPECT_EQ(seen.expiresAt, millisecondsSince1970(asked.expiresAt));
  EXPECT_LE(seen.createdAt, seen.expiresAt);
  EXPECT_EQ(seen.keyFingerprint, keyFingerprint);
  EXPECT_EQ(seen.keyName, "deploy");
  EXPECT_EQ(seen.purpose, ApprovalPurpose::signature("git"));
  EXPECT_EQ(seen.appName, "git");
  EXPECT_TRUE(seen.appVerified);
  EXPECT_EQ(seen.chain, asked.origin.chainPaths);
  EXPECT_EQ(seen.workingDirectory, "/home/user/project");
  EXPECT_EQ(seen.hint, "push");
  EXPECT_EQ(seen.dataHash, asked.dataHash);
  EXPECT_EQ(seen.scopes, (std::vector{qap::ApprovalScope::once, qap::ApprovalScope::fiveMinutes}));

  phone.send(macMailbox, phone.answerFor(seen, ApprovalDecision::approve));
  const auto result = answer.get();
  EXPECT_EQ(approved(result).scope, ApprovalScope::once());
  EXPECT_EQ(approved(result).by, "phone");
  EXPECT_TRUE(approved(result).fingerprintShown);
  EXPECT_EQ(approved(result).context, nullptr);
  EXPECT_EQ(service->openRequests(), 0u);
}

TEST_F(RemoteApprovalServiceTest, FiveMinutesIsAWindowOfExactly300Seconds) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  auto answer = testing::askLater(*service, request());
  phone.send(macMailbox, phone.answerFor(phone.nextRequest(), ApprovalDecision::approve,
                                         qap::ApprovalScope::fiveMinutes));
  EXPECT_EQ(approved(answer.get()).scope, ApprovalScope::window(300));
}

TEST_F(RemoteApprovalServiceTest, OffersOnlyOnceWithoutAWindowAndRefusesFiveMinutesThen) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  auto answer = testing::askLater(*service, request(60, /*windowAllowed=*/false));
  const ApprovalRequestMessage seen = phone.nextRequest();
  EXPECT_EQ(seen.scopes, std::vector{qap::ApprovalScope::once});
  phone.send(macMailbox,
             phone.answerFor(seen, ApprovalDecision::approve, qap::ApprovalScope::fiveMinutes));
  ASSERT_TRUE(eventually([&] { return !service->rejected().empty(); }));
  EXPECT_EQ(service->rejected(), std::vector{QAPFailureKind::scopeNotOffered});
  phone.send(macMailbox, phone.answerFor(seen, ApprovalDecision::approve));
  EXPECT_EQ(approved(answer.get()).scope, ApprovalScope::once());
}

TEST_F(RemoteApprovalServiceTest, DenyAndDenyAndBlockBecomeDenialsByTheDevice) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  for (ApprovalDecision decision : {ApprovalDecision::deny, ApprovalDecision::denyAndBlock}) {
    auto answer = testing::askLater(*service, request());
    phone.send(macMailbox, phone.answerFor(phone.nextRequest(), decision));
    const auto result = answer.get();
    const auto* denied = std::get_if<ApprovalResult::Denied>(&result.result.value);
    ASSERT_NE(denied, nullptr);
    EXPECT_EQ(denied->block, decision == ApprovalDecision::denyAndBlock);
    EXPECT_EQ(denied->by, "phone");
  }
}

TEST_F(RemoteApprovalServiceTest, AnAnswerBeforeTheCallerWaitsIsKeptForIt) {
  FarDevice phone = pair("phone");
  std::unique_ptr<RemoteApprovalService> service;
  service = makeService([&](const Bytes&) {
    phone.send(macMailbox, phone.answerFor(phone.nextRequest(), ApprovalDecision::approve));
    ASSERT_TRUE(eventually([&] { return service->earlyResults() == 1; }));
  });
  const auto result = service->ask(request(), {});
  EXPECT_EQ(approved(result).by, "phone");
  EXPECT_EQ(service->earlyResults(), 0u);
}

TEST_F(RemoteApprovalServiceTest, OnlyDevicesAllowedForTheKeyAreAskedOrHeard) {
  FarDevice everyKey = pair("tablet");  // paired before the key existed: every key
  FarDevice otherKey = pair("watch", std::set<std::string>{"SHA256:another key"});
  auto service = makeService();
  auto answer = testing::askLater(*service, request());
  const ApprovalRequestMessage seen = everyKey.nextRequest();
  EXPECT_TRUE(otherKey.receivedNothing());

  otherKey.send(macMailbox, otherKey.answerFor(seen, ApprovalDecision::approve));
  ASSERT_TRUE(eventually([&] { return !service->rejected().empty(); }));
  EXPECT_EQ(service->rejected(), std::vector{QAPFailureKind::notAllowedForKey});
  everyKey.send(macMailbox, everyKey.answerFor(seen, ApprovalDecision::deny));
  EXPECT_TRUE(std::holds_alternative<ApprovalResult::Denied>(answer.get().result.value));
}

TEST_F(RemoteApprovalServiceTest, ADeviceLimitedToOtherKeysMeanwhileNoLongerDecides) {
  FarDevice tablet = pair("tablet");
  FarDevice desk = pair("desk");
  auto service = makeService();
  auto answer = testing::askLater(*service, request());
  const ApprovalRequestMessage seen = tablet.nextRequest();
  {
    MutexLock lock(devicesMutex);
    paired[0].allowedKeys = std::set<std::string>{"SHA256:another key"};
  }
  tablet.send(macMailbox, tablet.answerFor(seen, ApprovalDecision::approve));
  ASSERT_TRUE(eventually([&] { return !service->rejected().empty(); }));
  EXPECT_EQ(service->rejected(), std::vector{QAPFailureKind::notAllowedForKey});
  EXPECT_EQ(service->openRequests(), 1u) << "the request still waits for the others";
  desk.send(macMailbox, desk.answerFor(desk.nextRequest(), ApprovalDecision::deny));
  EXPECT_TRUE(std::holds_alternative<ApprovalResult::Denied>(answer.get().result.value));
}

TEST_F(RemoteApprovalServiceTest, NobodyAllowedForTheKeySendsNothing) {
  FarDevice watch = pair("watch", std::set<std::string>{"SHA256:another key"});
  auto service = makeService();
  EXPECT_EQ(service->ask(request(), {}).status, Status::nobodyAllowed);
  EXPECT_TRUE(watch.receivedNothing());
  EXPECT_EQ(service->openRequests(), 0u);
}

TEST_F(RemoteApprovalServiceTest, AReplayedAnswerIsAlreadyAnsweredAndPollingResumesForTheNext) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  auto first = testing::askLater(*service, request());
  const Envelope answer = phone.answerFor(phone.nextRequest(), ApprovalDecision::approve);
  phone.send(macMailbox, answer);
  approved(first.get());

  // Nothing is open now, so the replay is read in the next request's polling round.
  phone.send(macMailbox, answer);
  auto second = testing::askLater(*service, request());
  const ApprovalRequestMessage next = phone.nextRequest();
  ASSERT_TRUE(eventually([&] { return !service->rejected().empty(); }));
  EXPECT_EQ(service->rejected(), std::vector{QAPFailureKind::alreadyAnswered});
  phone.send(macMailbox, phone.answerFor(next, ApprovalDecision::approve));
  approved(second.get());
}

TEST_F(RemoteApprovalServiceTest, ExpiresWhenNobodyAnswersInTime) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  const auto result = service->ask(request(0.2), {});
  EXPECT_TRUE(std::holds_alternative<ApprovalResult::Expired>(result.result.value));
  EXPECT_EQ(service->openRequests(), 0u);
  EXPECT_EQ(phone.receive(EnvelopeKind::approvalRequest).size(), 1u);
}

TEST_F(RemoteApprovalServiceTest, ACancelledRequestIsWithdrawnFromEveryDeviceAsked) {
  FarDevice phone = pair("phone");
  FarDevice tablet = pair("tablet");
  auto service = makeService();
  std::stop_source stop;
  const ApprovalRequest asked = request();
  auto answer = testing::askLater(*service, asked, stop.get_token());
  const ApprovalRequestMessage seen = phone.nextRequest();
  tablet.nextRequest();
  stop.request_stop();
  EXPECT_TRUE(std::holds_alternative<ApprovalResult::Cancelled>(answer.get().result.value));
  EXPECT_EQ(service->openRequests(), 0u);
  for (FarDevice* device : {&phone, &tablet}) {
    std::vector<Envelope> notices = device->receive(EnvelopeKind::resolved);
    ASSERT_EQ(notices.size(), 1u);
    const DeviceIdentity macs[] = {mac.identity()};
    EXPECT_EQ(openResolvedNotice(notices[0].body, device->keys, macs).notice.requestID,
              seen.requestID);
  }
  // A late answer finds no open request.
  phone.send(macMailbox, phone.answerFor(seen, ApprovalDecision::approve));
}

TEST_F(RemoteApprovalServiceTest, AnAcceptedAnswerIsResolvedOnTheOtherDevicesOnly) {
  FarDevice phone = pair("phone");
  FarDevice tablet = pair("tablet");
  auto service = makeService();
  auto answer = testing::askLater(*service, request());
  const ApprovalRequestMessage seen = phone.nextRequest();
  tablet.nextRequest();
  phone.send(macMailbox, phone.answerFor(seen, ApprovalDecision::approve));
  approved(answer.get());
  EXPECT_EQ(tablet.receive(EnvelopeKind::resolved).size(), 1u);
  EXPECT_TRUE(phone.receivedNothing());
}

TEST_F(RemoteApprovalServiceTest, AnUnreachableRelayIsOfflineUntilASendGoesThrough) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  relay->setUnreachable(true);
  EXPECT_EQ(service->ask(request(), {}).status, Status::unreachable);
  EXPECT_TRUE(service->offline());
  EXPECT_EQ(service->openRequests(), 0u);
  EXPECT_EQ(offlineHistory(), std::vector{true});

  relay->setUnreachable(false);
  auto answer = testing::askLater(*service, request());
  phone.send(macMailbox, phone.answerFor(phone.nextRequest(), ApprovalDecision::approve));
  approved(answer.get());
  EXPECT_FALSE(service->offline());
  EXPECT_EQ(offlineHistory(), (std::vector{true, false}));
}

TEST_F(RemoteApprovalServiceTest, FailingFetchesTurnOfflineAndBackOffUntilTheRelayIsBack) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  auto answer = testing::askLater(*service, request());
  const ApprovalRequestMessage seen = phone.nextRequest();
  relay->setUnreachable(true);
  ASSERT_TRUE(eventually([&] { return service->offline(); }));
  EXPECT_GT(sleeps.load(), 0);
  relay->setUnreachable(false);
  phone.send(macMailbox, phone.answerFor(seen, ApprovalDecision::approve));
  approved(answer.get());
  EXPECT_FALSE(service->offline());
}

TEST_F(RemoteApprovalServiceTest, AnUnpairNoticeFromAPairedDeviceIsPassedOn) {
  FarDevice phone = pair("phone");
  auto service = makeService();
  const Bytes phoneID = phone.keys.identity().identityHash();
  phone.send(macMailbox, sealUnpairNotice({phoneID, bytesOf("pairing")}, /*fromMac=*/false,
                                          phone.keys, mac.identity()));
  auto answer = testing::askLater(*service, request());
  const ApprovalRequestMessage seen = phone.nextRequest();
  ASSERT_TRUE(eventually([&] {
    MutexLock lock(eventsMutex);
    return !unpaired.empty();
  }));
  {
    MutexLock lock(eventsMutex);
    EXPECT_EQ(unpaired, std::vector<Bytes>{phoneID});
  }
  phone.send(macMailbox, phone.answerFor(seen, ApprovalDecision::deny));
  answer.get();
}

TEST_F(RemoteApprovalServiceTest, WhatTheMailboxHeldBeforeTheStartIsReadQuietly) {
  FarDevice phone = pair("phone");
  // An answer to a request of an earlier run, and a device's unpair notice sent meanwhile.
  ApprovalRequestMessage earlier;
  earlier.requestID = Bytes(16, 1);
  earlier.macID = mac.identity().identityHash();
  earlier.dataHash = Bytes(32, 2);
  phone.send(macMailbox, phone.answerFor(earlier, ApprovalDecision::approve));
  const Bytes phoneID = phone.keys.identity().identityHash();
  phone.send(macMailbox, sealUnpairNotice({phoneID, {}}, false, phone.keys, mac.identity()));

  auto service = makeService();
  ASSERT_TRUE(eventually([&] {
    MutexLock lock(eventsMutex);
    return !unpaired.empty();
  }));
  EXPECT_TRUE(service->rejected().empty());
  EXPECT_TRUE(offlineHistory().empty());
}

}  // namespace
}  // namespace quorvane
