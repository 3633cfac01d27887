#include <gtest/gtest.h>
#include <poll.h>

#include <chrono>
#include <future>
#include <thread>

#include "ActivityModel/InMemoryActivityLog.h"
#include "AgentState/InMemoryLockStore.h"
#include "Base/DecodingError.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/SoftwareHardwareKeys.h"
#include "Platform/PAMPresenceVerifier.h"
#include "PromptModel/PromptAgentLink.h"
#include "PromptModel/PromptChoice.h"
#include "PromptModel/PromptQueue.h"
#include "SSHWire/WireWriter.h"
#include "agent/ConnectionServer.h"
#include "agent/ControlService.h"
#include "support/PAMServices.h"
#include "support/SSHSig.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using testing::PAMService;

// The SSHSIG data that ssh-keygen -Y sign -n file hands the agent.
Bytes sshsigData() { return testing::sshSigSignedData("file", "sha512", Bytes(64, 7)); }

// The agent with its control service on a socket in a temporary folder, a private PAM service,
// and the dialog's side: a watch stream feeding a PromptQueue, answers sent as the dialog sends
// them.
struct PromptFixture : ::testing::Test {
  testing::TemporaryDirectory home;
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>(Date{1'800'000'000});
  std::shared_ptr<KeyStore> keys =
      std::make_shared<KeyStore>(std::make_shared<InMemorySecretStore>(), "", nullptr,
                                 std::make_shared<testing::SoftwareHardwareKeys>());
  std::shared_ptr<LocalApprover> approver = std::make_shared<LocalApprover>(*clock);
  std::shared_ptr<InMemoryActivityLog> log = std::make_shared<InMemoryActivityLog>();
  Agent agent{AgentServices{keys, approver, log, nullptr, nullptr,
                            std::make_shared<InMemoryLockStore>(), clock},
              PolicyEngine{}};
  KeyRecord key = keys->generate(KeyAlgorithm::ed25519, "laptop", clock->now());
  std::filesystem::path pam = testing::writePAMService(home.path() / "pam", PAMService::asks);
  PresenceGate gate{std::make_shared<PAMPresenceVerifier>(
                        PAMPresenceVerifier::currentUserName().value_or("root"), pam),
                    *clock, true};
  ControlService control{agent, *approver, gate, {}};
  std::filesystem::path socket = home.path() / "control.sock";
  UnixListener listener = UnixListener::open(socket);
  ConnectionServer server{
      listener, [this](int fd, std::stop_token shutdown) { control.serve(fd, shutdown); }, {}};
  std::stop_source stop;
  std::jthread serving{[this] { server.run(stop.get_token()); }};
  ManualClientWatch watch;
  std::optional<ControlClient> stream;
  PromptQueue queue;

  ~PromptFixture() override {
    stream.reset();
    stop.request_stop();
    serving.join();
  }

  SignInput input(Bytes data) {
    SignInput input;
    input.keyBlob = key.publicKeyBlob;
    input.data = std::move(data);
    input.purpose = SignPurpose::classify(input.data, key.publicKeyBlob);
    input.origin.appName = "ssh-keygen";
    input.origin.appIdentifier = "/usr/bin/ssh-keygen";
    input.origin.appTeamID = "system";
    input.origin.chainPaths = {"/usr/bin/ssh-keygen", "/bin/bash"};
    input.origin.workingDirectory = "/home/you/project";
    return input;
  }

  std::future<std::optional<Bytes>> startSigning(Bytes data = sshsigData()) {
    return std::async(std::launch::async,
                      [this, in = input(std::move(data))] { return agent.sign(in, watch); });
  }

  // A request put straight to the approver, for the ends the sign path makes slowly (expiry) and
  // the remote decision it does not make yet.
  ApprovalRequest handMade(double seconds, Decision decision = Decision::askLocal) {
    ApprovalRequest request;
    request.id = UUID::random();
    request.key = key;
    request.purpose = RequestPurpose::other();
    request.origin.appName = "python3";
    request.origin.chainPaths = {"/usr/bin/python3"};
    request.decision = decision;
    request.expiresAt = clock->now() + seconds;
    request.reason = "python3 for make an unknown signature with key “laptop”";
    return request;
  }

  void openStream() {
    stream = openPromptWatch(socket);
    ASSERT_TRUE(stream);
  }

  // The next watch line within `timeout`, applied to the queue.
  std::optional<PromptQueue::Change> nextChange(std::chrono::milliseconds timeout = 5s) {
    if (!stream->hasBufferedLine()) {
      pollfd entry{stream->fd(), POLLIN, 0};
      if (::poll(&entry, 1, static_cast<int>(timeout.count())) <= 0) return std::nullopt;
    }
    auto line = stream->next();
    if (!line) return std::nullopt;
    return queue.apply(*line);
  }

  // Reads the stream until the request on screen changes (bounded); why it ended, if it did.
  std::optional<PromptQueue::Change> nextShownChange() {
    for (int i = 0; i < 20; ++i) {
      auto change = nextChange();
      if (!change || change->shownChanged) return change;
    }
    return std::nullopt;
  }

  // Reads the stream until `count` requests wait in the queue (bounded).
  void waitForQueue(size_t count) {
    for (int i = 0; i < 20 && queue.count() != count; ++i)
      if (!nextChange()) break;
    ASSERT_EQ(queue.count(), count);
  }

  // Answers the request on screen as the dialog does, typing `typed` at every asking prompt.
  AnswerOutcome answer(const PromptChoice& choice, std::vector<PresencePrompt>* prompts = nullptr,
                       std::string typed = std::string(testing::kTypedSecret)) {
    auto message = answerMessage(*queue.shown(), choice);
    EXPECT_TRUE(message);
    const std::string id = queue.shown()->id;
    AnswerOutcome outcome = sendPromptAnswer(socket, *message, [&](const PresencePrompt& prompt) {
      if (prompts) prompts->push_back(prompt);
      return prompt.asks() ? std::optional<SecureBytes>(bytesOf(typed)) : std::nullopt;
    });
    if (outcome.accepted) queue.forget(id);
    return outcome;
  }

  ActivityEntry lastEntry() { return log->entries({}).front(); }
};

TEST_F(PromptFixture, ShowsTheWaitingRequestsOldestFirstWithTheirDetailsAndACount) {
  auto first = startSigning();
  for (int i = 0; i < 500 && approver->pending().empty(); ++i) std::this_thread::sleep_for(2ms);
  auto second = startSigning(Bytes(40, 1));
  for (int i = 0; i < 500 && approver->pending().size() < 2; ++i) std::this_thread::sleep_for(2ms);
  openStream();
  waitForQueue(2);

  const PromptRequest& shown = *queue.shown();
  EXPECT_EQ(shown.id, approver->pending().front().id.uuidString());
  EXPECT_EQ(shown.reason, "ssh-keygen for sign data (file) with key “laptop”");
  EXPECT_EQ(queue.countText(), "Request 1 of 2");
  const std::vector<PromptDetail> details = promptDetails(shown);
  ASSERT_GE(details.size(), 5u);
  EXPECT_EQ(details[0], (PromptDetail{"Program", "ssh-keygen (verified)", false}));
  EXPECT_EQ(details[1].label, "Key");
  EXPECT_EQ(details[2], (PromptDetail{"Process chain", "/usr/bin/ssh-keygen", false}));
  EXPECT_EQ(details[3], (PromptDetail{"", "/bin/bash", false}));
  EXPECT_EQ(details.back(), (PromptDetail{"Folder", "/home/you/project", false}));

  // Deny the first from the dialog: the second comes on screen, and the count goes.
  EXPECT_TRUE(answer(PromptChoice::deny()).accepted);
  EXPECT_EQ(queue.shown()->id, approver->pending().front().id.uuidString());
  EXPECT_EQ(queue.countText(), "");
  EXPECT_FALSE(first.get());
  EXPECT_TRUE(answer(PromptChoice::denyAndBlock()).accepted);
  EXPECT_FALSE(second.get());
  EXPECT_TRUE(queue.empty());
  EXPECT_EQ(lastEntry().decidedBy, "you, with quorvane-prompt");
  EXPECT_EQ(agent.activeBlocks().size(), 1u) << "deny and block blocks the program";
}

TEST_F(PromptFixture, AllowOnceVerifiesPresenceInTheDialogAndSigns) {
  EXPECT_EQ(control.watchers(), 0);
  openStream();
  EXPECT_EQ(control.watchers(), 1) << "the agent starts no dialog while this one is connected";
  auto signing = startSigning();
  waitForQueue(1);
  std::vector<PresencePrompt> prompts;
  AnswerOutcome outcome = answer(PromptChoice::allowOnce(), &prompts);
  EXPECT_TRUE(outcome.accepted) << outcome.text;
  EXPECT_TRUE(signing.get());
  ASSERT_EQ(prompts.size(), 2u);
  EXPECT_EQ(prompts[0].style, PresencePrompt::Style::info);
  EXPECT_EQ(prompts[0].text, testing::kReaderMessage);
  EXPECT_EQ(prompts[1].style, PresencePrompt::Style::secret);
  EXPECT_EQ(lastEntry().outcome, ActivityEntry::Outcome::signed_);

  // The dialog forgot the request it answered: the agent's end of it is not news.
  auto change = nextChange();
  ASSERT_TRUE(change);
  EXPECT_FALSE(change->shownEnded);
}

TEST_F(PromptFixture, AWrongPasswordIsRefusedWithTheAgentsWords) {
  openStream();
  auto signing = startSigning();
  waitForQueue(1);
  AnswerOutcome outcome = answer(PromptChoice::allowOnce(), nullptr, "wrong");
  EXPECT_FALSE(outcome.accepted);
  EXPECT_NE(outcome.text.find("verification failed"), std::string::npos) << outcome.text;
  EXPECT_FALSE(signing.get());
}

TEST_F(PromptFixture, AWindowIsOfferedOnlyWhereTheRequestAllowsOne) {
  openStream();
  auto other = startSigning(Bytes(40, 1));  // an unknown kind of data: no window
  waitForQueue(1);
  EXPECT_FALSE(queue.shown()->windowAllowed);
  for (const PromptButton& button : promptButtons(*queue.shown()))
    EXPECT_NE(button.kind, PromptChoiceKind::allowWindow);
  EXPECT_FALSE(answerMessage(*queue.shown(), PromptChoice::allowWindow(900)));
  EXPECT_TRUE(answer(PromptChoice::deny()).accepted);
  EXPECT_FALSE(other.get());

  auto signature = startSigning();  // a namespaced signature: a window may be given
  waitForQueue(1);
  ASSERT_TRUE(queue.shown()->windowAllowed);
  const auto buttons = promptButtons(*queue.shown());
  ASSERT_EQ(buttons.size(), 4u);
  EXPECT_EQ(buttons[1], (PromptButton{PromptChoiceKind::allowWindow, "Allow for"}));
  EXPECT_FALSE(answerMessage(*queue.shown(), PromptChoice::allowWindow(600)))
      << "600 s is not an approval window";
  EXPECT_TRUE(
      answer(PromptChoice::allowWindow(promptWindows()[kDefaultWindowIndex].seconds)).accepted);
  EXPECT_TRUE(signature.get());
  EXPECT_TRUE(startSigning().get()) << "the window signs the next one without asking";
}

TEST_F(PromptFixture, SaysWhyTheRequestOnScreenEndedElsewhere) {
  openStream();
  // Answered in another frontend.
  auto signing = startSigning();
  waitForQueue(1);
  ASSERT_TRUE(approver->answer(approver->pending().front().id, {ApprovalResult::Denied{}}));
  auto change = nextShownChange();
  ASSERT_TRUE(change);
  EXPECT_EQ(change->shownEnded, PromptEnding::answered);
  EXPECT_FALSE(signing.get());

  // Expired, and its program gone.
  auto expiring = std::async(std::launch::async, [&] {
    return approver->requestApproval(handMade(0.2), std::stop_token{});
  });
  waitForQueue(1);
  change = nextShownChange();
  ASSERT_TRUE(change);
  EXPECT_EQ(change->shownEnded, PromptEnding::expired);
  expiring.get();

  std::stop_source clientGone;
  auto leaving = std::async(std::launch::async, [&] {
    return approver->requestApproval(handMade(60), clientGone.get_token());
  });
  waitForQueue(1);
  clientGone.request_stop();
  change = nextShownChange();
  ASSERT_TRUE(change);
  EXPECT_EQ(change->shownEnded, PromptEnding::clientGone);
  leaving.get();
  EXPECT_TRUE(queue.empty());
}

TEST_F(PromptFixture, ARemoteRequestWaitingHereSaysRemoteApprovalIsOffline) {
  openStream();
  std::stop_source done;
  auto remote = std::async(std::launch::async, [&] {
    return approver->requestApproval(handMade(60, Decision::askRemote), done.get_token());
  });
  waitForQueue(1);
  EXPECT_TRUE(queue.shown()->remoteOffline);
  auto local = std::async(std::launch::async, [&] {
    return approver->requestApproval(handMade(60), done.get_token());
  });
  waitForQueue(2);
  queue.forget(queue.shown()->id);
  EXPECT_FALSE(queue.shown()->remoteOffline);
  done.request_stop();
  remote.get();
  local.get();
  EXPECT_EQ(kRemoteOfflineText, "Remote approval is offline. Approve on this computer instead.");
}

TEST(PromptChoices, EscapeDeniesWithoutABlockAndNothingIsTheDefault) {
  PromptRequest request;
  request.id = "id";
  auto message = answerMessage(request, {kEscapeChoice, std::nullopt});
  ASSERT_TRUE(message);
  EXPECT_EQ(*message, (JSON{{"message", "answer"},
                            {"id", "id"},
                            {"approve", false},
                            {"frontend", "quorvane-prompt"}}));
}

// The stream may announce a request twice (once as waiting when the dialog connects, once as
// new, or again when remote approval goes offline); a second announcement updates a queued
// request and never brings back a request that ended or was answered here.
TEST(PromptQueueInput, ARequestAnnouncedAgainIsUpdatedAndAfterItsEndStaysGone) {
  const auto request = [](const std::string& id) {
    return JSON{
        {"event", "request"},
        {"request",
         {{"id", id},
          {"reason", "r"},
          {"key", {{"name", "k"}, {"fingerprint", "f"}}},
          {"origin",
           {{"appName", "a"}, {"chainPaths", JSON::array()}, {"unsignedPrograms", JSON::array()}}},
          {"windowAllowed", false},
          {"expiresAt", "2026-11-25T10:00:00Z"}}}};
  };
  PromptQueue queue;
  queue.apply(request("one"));
  EXPECT_FALSE(queue.apply(request("one")).shownChanged);
  EXPECT_FALSE(queue.shown()->remoteOffline);
  // Announced again with remote approval offline: the request on screen is updated, not added.
  JSON offline = request("one");
  offline["request"]["remoteOffline"] = true;
  const PromptQueue::Change updated = queue.apply(offline);
  EXPECT_FALSE(updated.shownChanged);
  EXPECT_TRUE(updated.shownUpdated);
  EXPECT_TRUE(queue.shown()->remoteOffline);
  EXPECT_EQ(queue.count(), 1u);
  queue.apply(request("two"));
  EXPECT_FALSE(queue.apply(request("two")).shownUpdated);  // waiting behind, not on screen
  EXPECT_EQ(queue.count(), 2u);
  queue.forget("one");  // answered here
  queue.apply({{"event", "ended"}, {"id", "two"}, {"ending", "expired"}});
  EXPECT_FALSE(queue.apply(request("one")).shownChanged);
  EXPECT_FALSE(queue.apply(request("two")).shownChanged);
  EXPECT_TRUE(queue.empty());
}

// Lines of the watch stream that must not be taken as requests; each leaves the queue unchanged.
TEST(PromptQueueInput, BadRequestLinesAreRefusedWithADecodingError) {
  const JSON good = {
      {"id", "5A0B2C4D-0000-4000-8000-000000000001"},
      {"reason", "git for sign a Git commit with key “laptop”"},
      {"key", {{"name", "laptop"}, {"fingerprint", "SHA256:abc"}}},
      {"origin",
       {{"appName", "git"}, {"chainPaths", JSON::array()}, {"unsignedPrograms", JSON::array()}}},
      {"windowAllowed", true},
      {"expiresAt", "2026-11-25T10:00:00Z"}};
  PromptQueue queue;
  EXPECT_TRUE(queue.apply({{"event", "request"}, {"request", good}}).shownChanged);
  for (const char* field : {"id", "reason", "key", "origin", "windowAllowed", "expiresAt"}) {
    JSON missing = good;
    missing["id"] = "other";
    missing.erase(field);
    EXPECT_THROW(queue.apply({{"event", "request"}, {"request", missing}}), DecodingError) << field;
  }
  for (const JSON& bad : {JSON{{"expiresAt", "yesterday"}}, JSON{{"windowAllowed", "yes"}},
                          JSON{{"key", {{"name", 3}}}}, JSON{{"hostName", "confirmed"}}}) {
    JSON changed = good;
    changed.update(bad);
    changed["id"] = "other";
    EXPECT_THROW(queue.apply({{"event", "request"}, {"request", changed}}), DecodingError)
        << bad.dump();
  }
  EXPECT_THROW(queue.apply({{"event", "request"}}), DecodingError);
  for (const JSON& ignored : {JSON::array(), JSON{{"event", 1}}, JSON{{"event", "ended"}},
                              JSON{{"event", "ended"}, {"id", "unknown"}}, JSON{{"ok", true}}})
    EXPECT_FALSE(queue.apply(ignored).shownChanged) << ignored.dump();
  EXPECT_EQ(queue.count(), 1u);
}

}  // namespace
}  // namespace quorvane
