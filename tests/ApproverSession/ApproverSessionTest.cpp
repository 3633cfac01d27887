#include <gtest/gtest.h>

#include <thread>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/Notices.h"
#include "ApprovalProto/PendingApprovals.h"
#include "ApprovalProto/ProtocolTime.h"
#include "ApproverSession/ApproverError.h"
#include "ApproverSession/ApproverSession.h"
#include "ApproverSession/InboxFile.h"
#include "ApproverSession/OneRelay.h"
#include "ApproverSession/RequestIDs.h"
#include "ApproverSession/RequestText.h"
#include "Base/Hex.h"
#include "Base/Random.h"
#include "KeyStore/FixedSealingKey.h"
#include "Platform/InMemoryKeychain.h"
#include "RelayClient/InMemoryRelay.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using Kind = ApproverErrorKind;
using qap::ApprovalScope;

constexpr const char* kRelayURL = "https://relay.example/";

using testing::OneRelay;

Kind refusalOf(const std::function<void()>& action) {
  try {
    action();
  } catch (const ApproverError& error) {
    return error.kind();
  }
  ADD_FAILURE() << "no ApproverError thrown";
  return static_cast<Kind>(-1);
}

// The computer that asks for approvals, made in the test as the agent's remote approval service
// would be: its keys, its mailbox, its record of open requests, and this side's record of it.
struct AskingComputer {
  DeviceKeys keys;
  MailboxCredentials mailbox;
  PendingApprovals pending;
  PairedMac record;
};

class ApproverSessionTest : public ::testing::Test {
 protected:
  void SetUp() override { saveOwnMailbox(*keychain, kRelayURL, MailboxRole::approving, own); }

  AskingComputer pairComputer(const std::string& name) {
    AskingComputer asking{DeviceKeys::generate(name), relay.createMailbox(false), {}, {}};
    asking.record =
        PairedMac{asking.keys.identity(),  addressOf(asking.mailbox), kRelayURL, clock.now(),
                  crypto::randomBytes(16), relay.createSendToken(own)};
    std::vector<PairedMac> macs = loadPairedMacs(support);
    macs.push_back(asking.record);
    savePairedMacs(support, macs);
    return asking;
  }

  ApproverSession session() { return ApproverSession(support, approver, relays, clock); }

  // A login request that `from` sends to this side, registered in its pending approvals.
  ApprovalRequestMessage sendRequest(AskingComputer& from,
                                     std::vector<ApprovalScope> scopes = {
                                         ApprovalScope::once, ApprovalScope::fiveMinutes}) {
    ApprovalRequestMessage request{crypto::randomBytes(16),
                                   from.keys.identity().identityHash(),
                                   millisecondsSince1970(clock.now()),
                                   millisecondsSince1970(clock.now() + 60),
                                   "SHA256:2f1hMEBS0MOIdrpNYlHvYBgSAIs1q8bGrrdk1DAc3Fo",
                                   "work",
                                   ApprovalPurpose::login("SHA256:host", "git.example.com",
                                                          HostNameState::claimed, "git", true),
                                   "ssh",
                                   false,
                                   {"zsh", "ssh"},
                                   "/home/dev/project",
                                   "push",
                                   crypto::randomBytes(32),
                                   std::move(scopes)};
    from.pending.registerRequest(request, {approver.identity().identityHash()});
    relay.send(MailboxAddress{own.id, *from.record.deviceSendToken},
               sealApprovalRequest(request, from.keys, approver.identity()), false);
    return request;
  }

  // What reached the computer's mailbox since it last looked.
  std::vector<Envelope> computerMail(AskingComputer& at) {
    std::vector<Envelope> mail;
    for (RelayMessage& message : relay.fetch(at.mailbox, false)) mail.push_back(message.envelope);
    return mail;
  }

  // The one answer that reached the computer, as its pending approvals accept it.
  ApprovalResponseMessage acceptedAnswer() {
    std::vector<Envelope> mail = computerMail(computer);
    EXPECT_EQ(mail.size(), 1u);
    if (mail.empty()) return {};
    EXPECT_EQ(mail[0].kind, EnvelopeKind::approvalResponse);
    const DeviceIdentity devices[] = {approver.identity()};
    return computer.pending
        .accept(mail[0].body, computer.keys, devices, millisecondsSince1970(clock.now()))
        .response;
  }

  testing::TemporaryDirectory folder;
  std::shared_ptr<InMemoryKeychain> keychain = std::make_shared<InMemoryKeychain>();
  SupportState support{keychain, std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))),
                       folder.path()};
  InMemoryRelay relay{0.05};
  OneRelay relays{relay};
  ManualClock clock{Date{1'800'000'000}};
  DeviceKeys approver = DeviceKeys::generate("laptop");
  MailboxCredentials own = relay.createMailbox(false);
  AskingComputer computer = pairComputer("build-box");
};

struct AnswerCase {
  const char* name;
  ApprovalDecision decision;
  ApprovalScope scope;
};

class AnswerTest : public ApproverSessionTest, public ::testing::WithParamInterface<AnswerCase> {};

TEST_P(AnswerTest, TheComputerAcceptsTheAnswerAndItIsNotSentTwice) {
  const ApprovalRequestMessage request = sendRequest(computer);
  ApproverSession approving = session();
  const ApproverSession::Received received = approving.receive(false);
  ASSERT_EQ(received.arrived.size(), 1u);
  EXPECT_EQ(received.arrived[0].request, request);
  EXPECT_EQ(received.arrived[0].computer, "build-box");

  clock.advance(5);
  approving.answer(shortRequestID(request.requestID), GetParam().decision, GetParam().scope, true);
  const ApprovalResponseMessage accepted = acceptedAnswer();
  EXPECT_EQ(accepted.decision, GetParam().decision);
  EXPECT_EQ(accepted.scope, GetParam().scope);
  EXPECT_EQ(accepted.deviceID, approver.identity().identityHash());
  EXPECT_EQ(accepted.decidedAt, millisecondsSince1970(clock.now()));
  EXPECT_TRUE(accepted.fingerprintShown);

  EXPECT_TRUE(approving.waiting().empty());
  EXPECT_EQ(refusalOf([&] {
              approving.answer(hexEncode(request.requestID), GetParam().decision,
                               ApprovalScope::once, false);
            }),
            Kind::alreadyAnswered);
  EXPECT_TRUE(computerMail(computer).empty());
}

INSTANTIATE_TEST_SUITE_P(
    Decisions, AnswerTest,
    ::testing::Values(
        AnswerCase{"ApproveOnce", ApprovalDecision::approve, ApprovalScope::once},
        AnswerCase{"ApproveFiveMinutes", ApprovalDecision::approve, ApprovalScope::fiveMinutes},
        AnswerCase{"Deny", ApprovalDecision::deny, ApprovalScope::once},
        AnswerCase{"DenyAndBlock", ApprovalDecision::denyAndBlock, ApprovalScope::once}),
    [](const auto& testInfo) { return std::string(testInfo.param.name); });

TEST_F(ApproverSessionTest, FiveMinutesAreRefusedWhenOnlyOnceIsOfferedButADenialStillGoes) {
  const ApprovalRequestMessage request = sendRequest(computer, {ApprovalScope::once});
  ApproverSession approving = session();
  approving.receive(false);
  const std::string id = shortRequestID(request.requestID);
  EXPECT_EQ(refusalOf([&] {
              approving.answer(id, ApprovalDecision::approve, ApprovalScope::fiveMinutes, true);
            }),
            Kind::scopeNotOffered);
  EXPECT_TRUE(computerMail(computer).empty());
  ASSERT_EQ(approving.waiting().size(), 1u);

  // A refusal carries an offered scope whatever was asked, so the computer takes it.
  approving.answer(id, ApprovalDecision::deny, ApprovalScope::fiveMinutes, true);
  EXPECT_EQ(acceptedAnswer().scope, ApprovalScope::once);
}

TEST_F(ApproverSessionTest, ARequestSettledElsewhereIsDroppedAndCannotBeAnswered) {
  const ApprovalRequestMessage request = sendRequest(computer);
  ApproverSession approving = session();
  approving.receive(false);
  relay.send(
      MailboxAddress{own.id, *computer.record.deviceSendToken},
      sealResolvedNotice({request.requestID, request.macID}, computer.keys, approver.identity()),
      false);
  const ApproverSession::Received received = approving.receive(false);
  ASSERT_EQ(received.settledElsewhere.size(), 1u);
  EXPECT_EQ(received.settledElsewhere[0].request.requestID, request.requestID);
  EXPECT_TRUE(approving.waiting().empty());
  EXPECT_EQ(refusalOf([&] {
              approving.answer(shortRequestID(request.requestID), ApprovalDecision::approve,
                               ApprovalScope::once, true);
            }),
            Kind::settledElsewhere);
  EXPECT_TRUE(computerMail(computer).empty());
}

TEST_F(ApproverSessionTest, ExpiredRequestsDropOutAndOnesThatArriveExpiredAreNeverShown) {
  const ApprovalRequestMessage request = sendRequest(computer);
  ApproverSession approving = session();
  approving.receive(false);
  clock.advance(60);  // the deadline itself is too late
  const ApproverSession::Received received = approving.receive(false);
  ASSERT_EQ(received.expired.size(), 1u);
  EXPECT_EQ(received.expired[0].request.requestID, request.requestID);
  EXPECT_TRUE(approving.waiting().empty());
  EXPECT_EQ(refusalOf([&] {
              approving.answer(shortRequestID(request.requestID), ApprovalDecision::approve,
                               ApprovalScope::once, true);
            }),
            Kind::requestExpired);

  sendRequest(computer);
  clock.advance(61);
  EXPECT_TRUE(approving.receive(false).arrived.empty());
  EXPECT_TRUE(computerMail(computer).empty());
}

TEST_F(ApproverSessionTest, AnUnpairNoticeFromTheComputerRemovesItAndItsRequests) {
  AskingComputer other = pairComputer("other-box");
  sendRequest(computer);
  sendRequest(other);
  ApproverSession approving = session();
  EXPECT_EQ(approving.receive(false).arrived.size(), 2u);

  relay.send(MailboxAddress{own.id, *computer.record.deviceSendToken},
             sealUnpairNotice({computer.keys.identity().identityHash(), *computer.record.pairingID},
                              true, computer.keys, approver.identity()),
             false);
  const ApproverSession::Received received = approving.receive(false);
  EXPECT_EQ(received.unpairedBy, std::vector<std::string>{"build-box"});
  ASSERT_EQ(approving.computers().size(), 1u);
  EXPECT_EQ(approving.computers()[0].identity.name, "other-box");
  const std::vector<WaitingRequest> left = approving.waiting();
  ASSERT_EQ(left.size(), 1u);
  EXPECT_EQ(left[0].computer, "other-box");
  // The send token this side issued to it no longer posts.
  EXPECT_THROW(relay.send(MailboxAddress{own.id, *computer.record.deviceSendToken},
                          Envelope{EnvelopeKind::approvalRequest, {}}, false),
               RelayError);
}

TEST_F(ApproverSessionTest, UnpairingHereTellsTheComputerAndWithdrawsItsToken) {
  sendRequest(computer);
  ApproverSession approving = session();
  approving.receive(false);
  EXPECT_EQ(refusalOf([&] { approving.unpair("nobody"); }), Kind::noSuchComputer);

  const ApproverSession::Unpaired done =
      approving.unpair(identityFingerprint(computer.keys.identity()));
  EXPECT_EQ(done.computer, computer.record);
  EXPECT_FALSE(done.noticeFailure);
  EXPECT_FALSE(done.revokeFailure);

  std::vector<Envelope> mail = computerMail(computer);
  ASSERT_EQ(mail.size(), 1u);
  ASSERT_EQ(mail[0].kind, EnvelopeKind::unpair);
  const DeviceIdentity devices[] = {approver.identity()};
  const OpenedUnpairNotice opened = openUnpairNotice(mail[0].body, false, computer.keys, devices);
  EXPECT_EQ(opened.notice.senderID, approver.identity().identityHash());
  EXPECT_EQ(opened.notice.pairingID, *computer.record.pairingID);

  EXPECT_THROW(relay.send(MailboxAddress{own.id, *computer.record.deviceSendToken},
                          Envelope{EnvelopeKind::approvalRequest, {}}, false),
               RelayError);
  EXPECT_TRUE(approving.computers().empty());
  EXPECT_TRUE(readInbox(support).open.empty());
  EXPECT_EQ(refusalOf([&] { approving.receive(false); }), Kind::notPaired);
}

TEST_F(ApproverSessionTest, UnpairingStillRemovesTheRecordWhenTheRelayIsDown) {
  relay.failNext(RelayError::transport("no route"));
  relay.failNext(RelayError::transport("no route"));
  const ApproverSession::Unpaired done = session().unpair("build-box");
  EXPECT_TRUE(done.noticeFailure);
  EXPECT_TRUE(done.revokeFailure);
  EXPECT_TRUE(loadPairedMacs(support).empty());
}

TEST_F(ApproverSessionTest, RequestsFromAComputerThatIsNotPairedAreDroppedAndRecorded) {
  AskingComputer stranger{DeviceKeys::generate("stranger"), relay.createMailbox(false), {}, {}};
  stranger.record.deviceSendToken = computer.record.deviceSendToken;  // a leaked token
  sendRequest(stranger);
  ApproverSession approving = session();
  const ApproverSession::Received received = approving.receive(false);
  EXPECT_TRUE(received.arrived.empty());
  EXPECT_EQ(received.rejected, std::vector<std::string>{"unknownDevice"});
  ASSERT_EQ(approving.failures().size(), 1u);
  EXPECT_EQ(approving.failures()[0].failure, "unknownDevice");
  EXPECT_TRUE(approving.waiting().empty());
}

TEST_F(ApproverSessionTest, StateCarriesOverToTheNextRunOnTheSameFolder) {
  const ApprovalRequestMessage first = sendRequest(computer);
  const ApprovalRequestMessage second = sendRequest(computer);
  EXPECT_EQ(session().receive(false).arrived.size(), 2u);
  const uint64_t cursor = readInbox(support).cursors.at({kRelayURL, own.id});
  EXPECT_EQ(cursor, 2u);

  // Another run sees both requests; a message the relay delivers again is not shown twice.
  ApproverSession later = session();
  ASSERT_EQ(later.waiting().size(), 2u);
  EXPECT_EQ(later.find(hexEncode(second.requestID).substr(0, 6)).request, second);
  later.answer(shortRequestID(first.requestID), ApprovalDecision::approve, ApprovalScope::once,
               false);
  EXPECT_EQ(acceptedAnswer().requestID, first.requestID);
  relay.send(MailboxAddress{own.id, *computer.record.deviceSendToken},
             sealApprovalRequest(second, computer.keys, approver.identity()), false);
  EXPECT_TRUE(session().receive(false).arrived.empty());
  ASSERT_EQ(session().waiting().size(), 1u);
  EXPECT_EQ(session().waiting()[0].request, second);
}

// A watch learns of another run's answer from the snapshot: the request no longer waits and the
// closed list says it was answered.
TEST_F(ApproverSessionTest, ASnapshotShowsWhatAnotherRunDid) {
  const ApprovalRequestMessage request = sendRequest(computer);
  ApproverSession watching = session();
  watching.receive(false);
  ASSERT_EQ(watching.snapshot().waiting.size(), 1u);
  session().answer(shortRequestID(request.requestID), ApprovalDecision::deny, ApprovalScope::once,
                   false);
  const ApproverSession::Snapshot now = watching.snapshot();
  EXPECT_TRUE(now.waiting.empty());
  ASSERT_EQ(now.closed.size(), 1u);
  EXPECT_EQ(now.closed[0].requestID, request.requestID);
  EXPECT_EQ(now.closed[0].reason, ClosedReason::answered);
  ASSERT_EQ(now.computers.size(), 1u);
}

TEST_F(ApproverSessionTest, AnAnswerThatCannotBeSentLeavesTheRequestWaiting) {
  const ApprovalRequestMessage request = sendRequest(computer);
  ApproverSession approving = session();
  approving.receive(false);
  relay.failNext(RelayError::transport("no route"));
  EXPECT_THROW(approving.answer(shortRequestID(request.requestID), ApprovalDecision::approve,
                                ApprovalScope::once, true),
               RelayError);
  ASSERT_EQ(approving.waiting().size(), 1u);
  approving.answer(shortRequestID(request.requestID), ApprovalDecision::approve,
                   ApprovalScope::once, true);
  EXPECT_EQ(acceptedAnswer().decision, ApprovalDecision::approve);
}

TEST_F(ApproverSessionTest, RelayFailuresOnReceiveAreReportedNotThrown) {
  relay.failNext(RelayError::http(500));
  const ApproverSession::Received received = session().receive(false);
  ASSERT_EQ(received.relayFailures.size(), 1u);
  EXPECT_EQ(received.relayFailures[0].first, kRelayURL);
  EXPECT_EQ(received.relayFailures[0].second.status(), 500);
}

TEST_F(ApproverSessionTest, ARelayWithoutAMailboxOfThisSideIsReported) {
  std::vector<PairedMac> macs = loadPairedMacs(support);
  macs[0].relayURL = "https://other-relay.example/";
  savePairedMacs(support, macs);
  const ApproverSession::Received received = session().receive(false);
  EXPECT_EQ(received.withoutMailbox, std::vector<std::string>{"https://other-relay.example/"});
  EXPECT_TRUE(received.relayFailures.empty());
}

TEST_F(ApproverSessionTest, TypedIDsMustBeLongEnoughAndUnambiguous) {
  const Bytes a = hexDecode("3f2a9c1b00").value();
  const Bytes b = hexDecode("3f2a0000ff").value();
  const Bytes ids[] = {a, b};
  EXPECT_EQ(requestIDsMatching("3F2A9", ids), std::vector<Bytes>{a});
  EXPECT_EQ(requestIDsMatching("3f2a", ids).size(), 2u);
  EXPECT_TRUE(requestIDsMatching("3f2", ids).empty());
  EXPECT_TRUE(requestIDsMatching("3f2a9c1g", ids).empty());
  EXPECT_EQ(shortRequestID(a), "3f2a9c1b");

  const ApprovalRequestMessage request = sendRequest(computer);
  ApproverSession approving = session();
  approving.receive(false);
  EXPECT_EQ(refusalOf([&] { approving.find("0000000000"); }), Kind::noSuchRequest);
}

// A watch and an answer run at once: every change made under the lock survives.
TEST_F(ApproverSessionTest, ConcurrentUpdatesOfTheInboxLoseNothing) {
  auto addClosed = [&](uint8_t tag) {
    for (uint8_t i = 0; i < 10; ++i)
      updateInbox(support, [&](ApproverInbox& inbox) {
        inbox.close(Bytes{tag, i}, 4'000'000'000'000, ClosedReason::answered);
      });
  };
  std::thread one(addClosed, 1);
  std::thread two(addClosed, 2);
  one.join();
  two.join();
  EXPECT_EQ(readInbox(support).closed.size(), 20u);
}

TEST(RequestTextTest, DescribesTheRequestInThePromptsWords) {
  ApprovalRequestMessage request;
  request.appName = "ssh";
  request.keyName = "work";
  request.purpose =
      ApprovalPurpose::login(std::nullopt, "h.example", HostNameState::conflict, "git", true);
  EXPECT_EQ(requestReason(request),
            "ssh for sign in to h.example (WARNING: different host key than before) through a "
            "forwarded connection with key “work”");
  EXPECT_EQ(hostNameCertainty(request.purpose), "WARNING: different host key than before");
  request.purpose =
      ApprovalPurpose::login(std::nullopt, std::nullopt, HostNameState::unknown, "", false);
  EXPECT_EQ(requestAction(request.purpose), "sign in to an unverified host");
  EXPECT_EQ(hostNameCertainty(request.purpose), "unknown");
  EXPECT_EQ(requestAction(ApprovalPurpose::signature("git")), "sign a Git commit");
  EXPECT_EQ(requestAction(ApprovalPurpose::signature("file")), "sign data (file)");
  EXPECT_EQ(requestAction(ApprovalPurpose::other()), "make an unknown signature");
  EXPECT_EQ(hostNameCertainty(ApprovalPurpose::other()), "");
}

}  // namespace
}  // namespace quorvane
