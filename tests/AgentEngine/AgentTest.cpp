#include <gtest/gtest.h>

#include <chrono>
#include <future>
#include <thread>

#include "AgentEngine/Agent.h"
#include "AgentEngine/LocalApprover.h"
#include "AgentState/InMemoryLockStore.h"
#include "KeyStore/InMemorySecretStore.h"
#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;

// The activity log as a list, for the layer above the store.
class RecordingLog final : public ActivityLog {
 public:
  void append(const ActivityEntry& entry) override {
    std::lock_guard lock(mutex_);
    entries_.push_back(entry);
  }
  std::vector<ActivityEntry> entries(const ActivityQuery&) override {
    std::lock_guard lock(mutex_);
    return entries_;
  }
  ActivityEntry last() {
    std::lock_guard lock(mutex_);
    return entries_.back();
  }
  size_t count() {
    std::lock_guard lock(mutex_);
    return entries_.size();
  }

 private:
  std::mutex mutex_;
  std::vector<ActivityEntry> entries_;
};

// SSHSIG signed data for `namespace_`, as ssh-keygen -Y sign hands it to an agent.
Bytes sshsigData(const std::string& namespace_) {
  WireWriter writer;
  writer.writeRaw(bytesOf("SSHSIG"));
  writer.writeString(bytesOf(namespace_));
  writer.writeString(Bytes{});
  writer.writeString(bytesOf("sha512"));
  writer.writeString(Bytes(64, 7));
  return std::move(writer).take();
}

struct AgentFixture : ::testing::Test {
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>(Date{1'800'000'000});
  std::shared_ptr<KeyStore> keys =
      std::make_shared<KeyStore>(std::make_shared<InMemorySecretStore>(), "", nullptr);
  std::shared_ptr<LocalApprover> approver = std::make_shared<LocalApprover>(*clock);
  std::shared_ptr<RecordingLog> log = std::make_shared<RecordingLog>();
  std::shared_ptr<InMemoryLockStore> lockStore = std::make_shared<InMemoryLockStore>();
  KeyRecord ed25519 = keys->generate(KeyAlgorithm::ed25519, "laptop", clock->now());
  std::unique_ptr<Agent> agent = makeAgent({});

  std::unique_ptr<Agent> makeAgent(std::vector<Rule> rules) {
    PolicyEngine policy;
    policy.rules = std::move(rules);
    return std::make_unique<Agent>(
        AgentServices{keys, approver, log, nullptr, nullptr, lockStore, clock}, policy);
  }

  SignInput request(const KeyRecord& key, Bytes data = sshsigData("file"), SignFlags flags = {}) {
    SignInput input;
    input.keyBlob = key.publicKeyBlob;
    input.data = data;
    input.flags = flags;
    input.purpose = SignPurpose::classify(data, key.publicKeyBlob);
    input.origin.appName = "ssh-keygen";
    input.origin.appIdentifier = "/usr/bin/ssh-keygen";
    input.origin.appTeamID = "system";
    input.origin.chainPaths = {"/usr/bin/ssh-keygen"};
    return input;
  }

  // Starts a sign request on its own thread and waits until it is pending with the approver.
  std::future<std::optional<Bytes>> startWaiting(ClientWatch& watch, const SignInput& input) {
    const size_t before = approver->pending().size();
    auto future = std::async(std::launch::async, [&, input] { return agent->sign(input, watch); });
    for (int i = 0; i < 500 && approver->pending().size() == before; ++i)
      std::this_thread::sleep_for(2ms);
    EXPECT_EQ(approver->pending().size(), before + 1);
    return future;
  }

  void approveNewest(ApprovalScope scope = ApprovalScope::once()) {
    auto context = std::make_shared<AuthContext>(AuthContext{"test", clock->now()});
    ASSERT_TRUE(approver->answer(approver->pending().back().id,
                                 {ApprovalResult::Approved{scope, context, "you", true}}));
  }
};

TEST_F(AgentFixture, ApprovedRequestSignsAndLogsOneEntry) {
  ManualClientWatch watch;
  auto waiting = startWaiting(watch, request(ed25519));
  const ApprovalRequest shown = approver->pending().front();
  EXPECT_EQ(shown.reason, "ssh-keygen for sign data (file) with key “laptop”");
  EXPECT_EQ(shown.expiresAt, clock->now() + 60);
  approveNewest();
  auto signature = waiting.get();
  ASSERT_TRUE(signature);
  EXPECT_TRUE(verify(*signature, sshsigData("file"), SSHPublicKey::parse(ed25519.publicKeyBlob)));

  ASSERT_EQ(log->count(), 1u);
  ActivityEntry entry = log->last();
  EXPECT_EQ(entry.purpose, "sign:file");
  EXPECT_EQ(entry.outcome, ActivityEntry::Outcome::signed_);
  EXPECT_EQ(entry.decision, "askLocal");
  EXPECT_EQ(entry.decidedBy, "you");
  EXPECT_EQ(entry.keyName, "laptop");
}

TEST_F(AgentFixture, FixedRefusalsComeBeforeThePolicy) {
  ManualClientWatch watch;
  KeyRecord rsa = keys->generate(KeyAlgorithm::rsa, "old", clock->now(), 3072);
  SignInput unknown = request(ed25519);
  unknown.keyBlob = rsa.publicKeyBlob;
  unknown.keyBlob.back() ^= 1;

  struct Case {
    SignInput input;
    std::string note;
  };
  std::vector<Case> cases = {
      {unknown, "unknown key"},
      {request(rsa, sshsigData("git"), SignFlags{0}), "SHA-1 RSA signatures (ssh-rsa) are refused"},
  };
  for (const Case& c : cases) {
    EXPECT_FALSE(agent->sign(c.input, watch));
    EXPECT_EQ(log->last().note, c.note);
    EXPECT_EQ(log->last().outcome, ActivityEntry::Outcome::rejected);
  }
  EXPECT_TRUE(approver->pending().empty()) << "no prompt for a fixed refusal";

  agent->lock();
  EXPECT_TRUE(lockStore->isLocked());
  EXPECT_FALSE(agent->sign(request(ed25519), watch));
  EXPECT_EQ(log->last().note, "agent locked");
  EXPECT_EQ(agent->identities().size(), 2u) << "a locked agent still lists its keys";
  EXPECT_EQ(log->count(), 3u);
}

TEST_F(AgentFixture, AFourthWaitingRequestForAKeyIsRefusedAtOnce) {
  ManualClientWatch watch;
  std::vector<std::future<std::optional<Bytes>>> waiting;
  for (int i = 0; i < 3; ++i) waiting.push_back(startWaiting(watch, request(ed25519)));
  EXPECT_FALSE(agent->sign(request(ed25519), watch));
  EXPECT_EQ(log->last().note, "too many pending requests");
  EXPECT_EQ(log->count(), 1u);
  for (int i = 0; i < 3; ++i) approveNewest();
  for (auto& future : waiting) EXPECT_TRUE(future.get());
  EXPECT_EQ(log->count(), 4u);
}

struct InterruptionCase {
  std::string name;
  std::function<void(AgentFixture&, ManualClientWatch&)> during;
  std::string note;
  ActivityEntry::Outcome outcome;
};

void PrintTo(const InterruptionCase& c, std::ostream* out) { *out << c.name; }

struct AgentWaitInterruption : AgentFixture, ::testing::WithParamInterface<InterruptionCase> {};

TEST_P(AgentWaitInterruption, DecidesTheEnd) {
  const InterruptionCase& c = GetParam();
  ManualClientWatch watch;
  auto waiting = startWaiting(watch, request(ed25519));
  c.during(*this, watch);
  // The user approves anyway, if the request still waits: after a hang-up it may end at any time.
  const auto stillWaiting = approver->pending();
  if (!stillWaiting.empty()) {
    auto context = std::make_shared<AuthContext>(AuthContext{"test", clock->now()});
    approver->answer(stillWaiting.back().id,
                     {ApprovalResult::Approved{ApprovalScope::once(), context, "you", true}});
  }
  EXPECT_FALSE(waiting.get());
  EXPECT_EQ(log->last().note, c.note);
  EXPECT_EQ(log->last().outcome, c.outcome);
}

INSTANTIATE_TEST_SUITE_P(
    DuringTheWait, AgentWaitInterruption,
    ::testing::Values(
        InterruptionCase{"lock", [](AgentFixture& f, ManualClientWatch&) { f.agent->lock(); },
                         "locked while waiting", ActivityEntry::Outcome::rejected},
        InterruptionCase{"rules",
                         [](AgentFixture& f, ManualClientWatch&) {
                           f.agent->replaceRules(
                               {Rule::make("new", Decision::deny, PurposeMatch::other())});
                         },
                         "rule changed while waiting", ActivityEntry::Outcome::denied},
        InterruptionCase{"hangup", [](AgentFixture&, ManualClientWatch& watch) { watch.hangUp(); },
                         "client disconnected", ActivityEntry::Outcome::expired}),
    [](const ::testing::TestParamInfo<InterruptionCase>& tested) { return tested.param.name; });

TEST_F(AgentFixture, DenialsAndTimeoutsCountTowardsABlock) {
  ManualClientWatch watch;
  for (int i = 0; i < 3; ++i) {
    auto waiting = startWaiting(watch, request(ed25519));
    if (i == 1) {
      clock->advance(60);  // the answer comes after the request expired
      ASSERT_TRUE(approver->answer(approver->pending().back().id, {ApprovalResult::Expired{}}));
    } else {
      ASSERT_TRUE(
          approver->answer(approver->pending().back().id, {ApprovalResult::Denied{false, "you"}}));
    }
    EXPECT_FALSE(waiting.get());
  }
  EXPECT_FALSE(agent->sign(request(ed25519), watch));
  ActivityEntry blocked = log->last();
  EXPECT_EQ(blocked.decision, "deny");
  EXPECT_TRUE(blocked.decidedBy.starts_with("blocked until ")) << blocked.decidedBy;
  EXPECT_TRUE(
      blocked.decidedBy.ends_with(": too many denied or unanswered requests from this program"));
}

TEST_F(AgentFixture, AWindowApprovalLetsTheSameProgramSignUntilItEnds) {
  ManualClientWatch watch;
  auto waiting = startWaiting(watch, request(ed25519));
  ASSERT_TRUE(approver->pending().front().windowAllowed);
  approveNewest(ApprovalScope::window(300));
  ASSERT_TRUE(waiting.get());

  EXPECT_TRUE(agent->sign(request(ed25519), watch)) << "inside the window: no prompt";
  EXPECT_EQ(log->last().decision, "allow");
  EXPECT_TRUE(log->last().decidedBy.starts_with("approval window until "));

  clock->advance(300);
  auto afterWindow = startWaiting(watch, request(ed25519));
  approveNewest();
  EXPECT_TRUE(afterWindow.get());
}

TEST_F(AgentFixture, RulesDecideWithoutAsking) {
  agent = makeAgent({Rule::make("git commits", Decision::allow, PurposeMatch::signature("git")),
                     Rule::make("no files", Decision::deny, PurposeMatch::signature("file"))});
  ManualClientWatch watch;
  EXPECT_TRUE(agent->sign(request(ed25519, sshsigData("git")), watch));
  EXPECT_EQ(log->last().decidedBy, "rule “git commits”");
  EXPECT_FALSE(agent->sign(request(ed25519, sshsigData("file")), watch));
  EXPECT_EQ(log->last().decidedBy, "rule “no files”");
  EXPECT_EQ(log->last().outcome, ActivityEntry::Outcome::denied);
}

}  // namespace
}  // namespace quorvane
