#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "ActivityModel/InMemoryActivityLog.h"
#include "AgentState/InMemoryLockStore.h"
#include "AgentState/PresenceSetting.h"
#include "AgentState/RemotePause.h"
#include "ControlProtocol/ControlClient.h"
#include "ControlProtocol/ControlLineIO.h"
#include "KeyStore/ImportedKey.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/KeyStoreError.h"
#include "KeyStore/KeychainSealingKey.h"
#include "KeyStore/SignatureBlob.h"
#include "KeyStore/SoftwareHardwareKeys.h"
#include "Platform/InMemoryKeychain.h"
#include "Platform/PAMPresenceVerifier.h"
#include "Platform/SocketIO.h"
#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireWriter.h"
#include "agent/ConnectionServer.h"
#include "agent/ControlService.h"
#include "agent/FrameIO.h"
#include "support/PAMServices.h"
#include "support/SSHSig.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;
using testing::PAMService;

// The SSHSIG data that ssh-keygen -Y sign -n file hands the agent.
Bytes sshsigData() { return testing::sshSigSignedData("file", "sha512", Bytes(64, 7)); }

// Shows nothing, answers every asking prompt with `typed` (or cancels), and counts the prompts.
struct Frontend {
  std::optional<std::string> typed;
  std::vector<PresencePrompt> prompts;
  PromptHandler handler() {
    return [this](const PresencePrompt& prompt) -> std::optional<SecureBytes> {
      prompts.push_back(prompt);
      if (!prompt.asks() || !typed) return std::nullopt;
      return SecureBytes(bytesOf(*typed));
    };
  }
};

// The agent with its control socket served for real, and a private PAM configuration.
struct PresenceFixture : ::testing::Test {
  testing::TemporaryDirectory home;
  std::shared_ptr<ManualClock> clock = std::make_shared<ManualClock>(Date{1'800'000'000});
  std::shared_ptr<testing::SoftwareHardwareKeys> hardware =
      std::make_shared<testing::SoftwareHardwareKeys>();
  std::shared_ptr<KeyStore> keys =
      std::make_shared<KeyStore>(std::make_shared<InMemorySecretStore>(), "", nullptr, hardware);
  std::shared_ptr<LocalApprover> approver = std::make_shared<LocalApprover>(*clock);
  std::shared_ptr<InMemoryActivityLog> log = std::make_shared<InMemoryActivityLog>();
  Agent agent{AgentServices{keys, approver, log, nullptr, nullptr,
                            std::make_shared<InMemoryLockStore>(), clock},
              PolicyEngine{}};
  KeyRecord imported = keys->generate(KeyAlgorithm::ed25519, "laptop", clock->now());
  KeyRecord touchID = keys->create("fingerprint", ProtectionClass::touchIDOnly, clock->now());
  std::filesystem::path pam = home.path() / "pam";
  PresenceGate gate{std::make_shared<PAMPresenceVerifier>(
                        PAMPresenceVerifier::currentUserName().value_or("root"), pam),
                    *clock, true};
  std::vector<bool> savedSettings;
  std::atomic<bool> relayOffline{false};
  ControlService control{agent,
                         *approver,
                         gate,
                         {{},
                          {},
                          {},
                          [this](bool enabled) { savedSettings.push_back(enabled); },
                          nullptr,
                          [this] { return relayOffline.load(); }}};
  std::filesystem::path socket = home.path() / "control.sock";
  UnixListener listener = UnixListener::open(socket);
  ConnectionServer server{
      listener, [this](int fd, std::stop_token shutdown) { control.serve(fd, shutdown); }, {}};
  std::stop_source stop;
  std::jthread serving{[this] { server.run(stop.get_token()); }};
  ManualClientWatch watch;

  ~PresenceFixture() override {
    stop.request_stop();
    serving.join();
  }

  void usePAM(PAMService service) { testing::writePAMService(pam, service); }

  SignInput request(const KeyRecord& key) {
    SignInput input;
    input.keyBlob = key.publicKeyBlob;
    input.data = sshsigData();
    input.purpose = SignPurpose::classify(input.data, key.publicKeyBlob);
    input.origin.appName = "ssh-keygen";
    input.origin.appIdentifier = "/usr/bin/ssh-keygen";
    input.origin.appTeamID = "system";
    input.origin.chainPaths = {"/usr/bin/ssh-keygen"};
    return input;
  }

  // Starts a signature on its own thread; `asks`: waits until it is pending with the approver.
  std::future<std::optional<Bytes>> startSigning(const KeyRecord& key, bool asks = true) {
    auto future = std::async(std::launch::async,
                             [this, input = request(key)] { return agent.sign(input, watch); });
    if (asks) waitForPending(1);
    return future;
  }

  void waitForPending(size_t count) {
    for (int i = 0; i < 1000 && approver->pending().size() != count; ++i)
      std::this_thread::sleep_for(2ms);
    ASSERT_EQ(approver->pending().size(), count);
  }

  JSON send(const JSON& message, Frontend& frontend) {
    auto client = ControlClient::connect(socket);
    EXPECT_TRUE(client);
    return client->exchange(message, frontend.handler());
  }

  JSON approveNewest(Frontend& frontend, std::optional<double> window = std::nullopt) {
    JSON message = {{"message", "answer"},
                    {"id", approver->pending().back().id.uuidString()},
                    {"approve", true},
                    {"frontend", "test"}};
    if (window) message["windowSeconds"] = *window;
    return send(message, frontend);
  }

  ActivityEntry lastEntry() { return log->entries({}).front(); }
};

struct ApprovalCase {
  const char* name;
  PAMService service;
  std::optional<std::string> typed;
  bool signs;
  const char* decidedBy;  // how the entry begins
};

class ApprovalThroughPAM : public PresenceFixture,
                           public ::testing::WithParamInterface<ApprovalCase> {};

TEST_P(ApprovalThroughPAM, TheVerificationDecidesAndTheLogSaysWho) {
  const ApprovalCase& c = GetParam();
  usePAM(c.service);
  auto signing = startSigning(imported);
  Frontend frontend{c.typed, {}};
  JSON answer = approveNewest(frontend);
  EXPECT_EQ(answer.value("ok", false), c.signs) << answer.dump();
  auto signature = signing.get();
  ASSERT_EQ(signature.has_value(), c.signs);
  if (signature) {
    EXPECT_TRUE(verify(*signature, sshsigData(), SSHPublicKey::parse(imported.publicKeyBlob)));
  }
  const ActivityEntry entry = lastEntry();
  EXPECT_EQ(entry.outcome,
            c.signs ? ActivityEntry::Outcome::signed_ : ActivityEntry::Outcome::denied);
  EXPECT_EQ(entry.decidedBy.rfind(c.decidedBy, 0), 0u) << entry.decidedBy;
  if (c.service == PAMService::asks) {
    // A wrong answer is asked for again, up to three times in all, as sudo does.
    ASSERT_EQ(frontend.prompts.size(), c.signs ? 2u : 8u);
    EXPECT_EQ(frontend.prompts[0].text, testing::kReaderMessage);
    EXPECT_EQ(frontend.prompts[1].style, PresencePrompt::Style::secret);
    EXPECT_EQ(frontend.prompts[1].text.rfind("Password for ", 0), 0u) << "names the account";
    if (!c.signs) {
      EXPECT_EQ(frontend.prompts[2].text, PresenceGate::kTryAgain);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    PrivateServices, ApprovalThroughPAM,
    ::testing::Values(ApprovalCase{"permit", PAMService::permit, std::nullopt, true,
                                   "you, with test"},
                      ApprovalCase{"deny", PAMService::deny, std::nullopt, false,
                                   "you, with test: verification failed"},
                      ApprovalCase{"rightAnswer", PAMService::asks,
                                   std::string(testing::kTypedSecret), true, "you, with test"},
                      ApprovalCase{"wrongAnswer", PAMService::asks, "sesame", false,
                                   "you, with test: verification failed"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST_F(PresenceFixture, AFrontendThatSkipsTheVerificationCannotMakeTheAgentSign) {
  usePAM(PAMService::asks);
  auto signing = startSigning(imported);
  const std::string id = approver->pending().front().id.uuidString();
  const JSON approve = {{"message", "answer"}, {"id", id}, {"approve", true}};

  // A client that cancels every prompt.
  JSON cancelled = ControlClient::connect(socket)->request(approve);
  EXPECT_FALSE(cancelled.value("ok", true));
  EXPECT_NE(cancelled.value("error", "").find("keeps waiting"), std::string::npos);

  // Clients that send something else where the reply belongs, or hang up at the prompt.
  for (const std::string& instead :
       {std::string(R"({"message":"answer","id":")") + id + R"(","approve":true})",
        std::string(R"({"message":"promptAnswer","answer":"open sesame","approve":true})"),
        std::string()}) {
    auto raw = connectUnix(socket);
    ASSERT_TRUE(raw);
    ASSERT_TRUE(writeControlLine(raw.get(), approve));
    std::string buffer;
    for (int prompt = 0; prompt < 2; ++prompt) ASSERT_TRUE(readControlLine(raw.get(), buffer));
    if (instead.empty()) {
      raw = FileDescriptor();
      continue;
    }
    ASSERT_TRUE(writeAll(raw.get(), bytesOf(instead + "\n")));
    auto reply = readControlLine(raw.get(), buffer);
    ASSERT_TRUE(reply);
    EXPECT_FALSE(JSON::parse(*reply).value("ok", true)) << *reply;
  }
  std::this_thread::sleep_for(100ms);
  EXPECT_EQ(approver->pending().size(), 1u) << "nothing approved or denied the request";

  Frontend right{std::string(testing::kTypedSecret), {}};
  EXPECT_TRUE(approveNewest(right).value("ok", false));
  EXPECT_TRUE(signing.get());
}

class WindowReuse : public PresenceFixture,
                    public ::testing::WithParamInterface<ProtectionClass> {};

TEST_P(WindowReuse, AWindowApprovedOnceSignsWithoutAPromptUntilItEnds) {
  usePAM(PAMService::asks);
  const KeyRecord key = GetParam() == ProtectionClass::imported ? imported : touchID;
  Frontend frontend{std::string(testing::kTypedSecret), {}};
  auto first = startSigning(key);
  EXPECT_TRUE(approveNewest(frontend, 300).value("ok", false));
  EXPECT_TRUE(first.get());
  ASSERT_EQ(frontend.prompts.size(), 2u);

  clock->advance(299);
  EXPECT_TRUE(startSigning(key, false).get()) << "signed inside the window without a request";
  EXPECT_EQ(lastEntry().decidedBy.rfind("approval window until", 0), 0u);
  EXPECT_EQ(frontend.prompts.size(), 2u);

  clock->advance(2);
  auto afterWindow = startSigning(key);
  EXPECT_TRUE(approveNewest(frontend).value("ok", false));
  EXPECT_TRUE(afterWindow.get());
  EXPECT_EQ(frontend.prompts.size(), 4u) << "the window's end asks for presence again";
}

INSTANTIATE_TEST_SUITE_P(Keys, WindowReuse,
                         ::testing::Values(ProtectionClass::imported,
                                           ProtectionClass::touchIDOnly));

TEST_F(PresenceFixture, FingerprintKeysNeedLivePresenceEvenWhenARuleAllows) {
  usePAM(PAMService::permit);
  Rule allow;
  allow.id = UUID::random();
  allow.name = "everything";
  allow.decision = Decision::allow;
  agent.replaceRules({allow});
  EXPECT_TRUE(startSigning(imported, false).get()) << "the rule alone decides for imported keys";
  EXPECT_EQ(lastEntry().decidedBy, "rule “everything”");

  auto fingerprintKey = startSigning(touchID);
  EXPECT_EQ(approver->pending().front().decision, Decision::askLocal);
  Frontend frontend;
  EXPECT_TRUE(approveNewest(frontend).value("ok", false));
  EXPECT_TRUE(fingerprintKey.get());

  // A rule that sends requests to paired devices keeps fingerprint keys on this machine.
  allow.decision = Decision::askRemote;
  agent.replaceRules({allow});
  auto remote = startSigning(touchID);
  EXPECT_EQ(approver->pending().front().decision, Decision::askLocal);
  EXPECT_TRUE(approveNewest(frontend).value("ok", false));
  EXPECT_TRUE(remote.get());
}

TEST_F(PresenceFixture, UnlockAndRemoteResumeNeedAVerification) {
  int resumed = 0;
  ControlService withHooks{agent, *approver, gate, {{}, {}, [&] { ++resumed; }, {}}};
  agent.lock();
  struct Attempt {
    PAMService service;
    std::optional<std::string> typed;
    bool works;
  };
  for (const Attempt& attempt :
       {Attempt{PAMService::deny, std::nullopt, false},
        Attempt{PAMService::asks, std::nullopt, false}, Attempt{PAMService::asks, "wrong", false},
        Attempt{PAMService::asks, std::string(testing::kTypedSecret), true}}) {
    usePAM(attempt.service);
    Frontend frontend{attempt.typed, {}};
    EXPECT_EQ(send({{"message", "unlock"}}, frontend).value("ok", false), attempt.works);
    EXPECT_EQ(agent.isLocked(), !attempt.works);
    class Relay final : public PresenceConversation {
     public:
      explicit Relay(Frontend& f) : handler_(f.handler()) {}
      std::optional<SecureBytes> exchange(const PresencePrompt& p) override { return handler_(p); }

     private:
      PromptHandler handler_;
    } relay(frontend);
    EXPECT_EQ(withHooks.handle({{"message", "resumeRemote"}}, relay).value("ok", false),
              attempt.works);
  }
  EXPECT_EQ(resumed, 1);
}

TEST_F(PresenceFixture, TurningVerificationOffNeedsAVerificationFirst) {
  usePAM(PAMService::deny);
  Frontend frontend;
  const JSON off = {{"message", "presence"}, {"enabled", false}};
  EXPECT_FALSE(send(off, frontend).value("ok", true));
  EXPECT_TRUE(gate.required());

  usePAM(PAMService::permit);
  EXPECT_TRUE(send(off, frontend).value("ok", false));
  EXPECT_FALSE(gate.required());
  EXPECT_EQ(savedSettings, std::vector<bool>{false});

  // Off: the frontend's answer stands alone, even where PAM would refuse.
  usePAM(PAMService::deny);
  auto signing = startSigning(imported);
  EXPECT_TRUE(approveNewest(frontend).value("ok", false));
  EXPECT_TRUE(signing.get());
  // Turning it back on proves that verification works, so nobody locks themselves out.
  EXPECT_FALSE(send({{"message", "presence"}, {"enabled", true}}, frontend).value("ok", true));
  EXPECT_FALSE(gate.required());
}

// The control service of an agent whose hardware keys of the presence classes have a PIN: the
// hook checks it as the TPM would, accepting "2468"; a wrong one leaves one more try, then none.
struct PINApproval : PresenceFixture {
  std::vector<std::string> checkedPINs;
  int wrongPINs = 0;
  ControlService pinControl{
      agent, *approver, gate, {{}, {}, {}, {}, [this](const KeyRecord&, const SecureBytes& pin) {
                                 checkedPINs.emplace_back(pin.text());
                                 if (pin.text() == "2468") return;
                                 if (++wrongPINs == 1) throw KeyStoreError::wrongPIN(1);
                                 throw KeyStoreError::pinLockedOut(30);
                               }}};
  std::filesystem::path pinSocket = home.path() / "pin-control.sock";
  UnixListener pinListener = UnixListener::open(pinSocket);
  ConnectionServer pinServer{
      pinListener,
      [this](int fd, std::stop_token shutdown) { pinControl.serve(fd, shutdown); },
      {}};
  std::jthread pinServing{[this] { pinServer.run(stop.get_token()); }};

  ~PINApproval() override {
    stop.request_stop();
    pinServing.join();
  }

  JSON approveWithPIN(Frontend& frontend, std::optional<double> window = std::nullopt) {
    JSON message = {{"message", "answer"},
                    {"id", approver->pending().back().id.uuidString()},
                    {"approve", true},
                    {"frontend", "test"}};
    if (window) message["windowSeconds"] = *window;
    auto client = ControlClient::connect(pinSocket);
    EXPECT_TRUE(client);
    return client->exchange(message, frontend.handler());
  }
};

TEST_F(PINApproval, ThePINComesWithTheApprovalLastsForTheWindowAndEndsWithALock) {
  usePAM(PAMService::permit);
  Frontend frontend{"2468", {}};
  auto first = startSigning(touchID);
  EXPECT_TRUE(approveWithPIN(frontend, 300).value("ok", false));
  EXPECT_TRUE(first.get());
  ASSERT_EQ(frontend.prompts.size(), 1u);
  EXPECT_EQ(frontend.prompts[0].text, "PIN of the TPM key “fingerprint”: ");
  EXPECT_EQ(frontend.prompts[0].style, PresencePrompt::Style::secret);
  EXPECT_EQ(hardware->signaturesWithPIN, 1);

  clock->advance(100);
  EXPECT_TRUE(startSigning(touchID, false).get()) << "the window signs without asking";
  EXPECT_EQ(hardware->signaturesWithPIN, 2) << "with the PIN the window kept";
  EXPECT_EQ(checkedPINs.size(), 1u);

  clock->advance(201);
  auto afterWindow = startSigning(touchID);
  EXPECT_TRUE(approveWithPIN(frontend, 300).value("ok", false));
  EXPECT_TRUE(afterWindow.get());
  EXPECT_EQ(checkedPINs.size(), 2u) << "the window's end forgot the PIN";

  agent.lock();
  agent.unlock();
  auto afterLock = startSigning(touchID);
  EXPECT_TRUE(approveWithPIN(frontend).value("ok", false));
  EXPECT_TRUE(afterLock.get());
  EXPECT_EQ(checkedPINs.size(), 3u) << "the lock forgot the PIN";

  // Software keys have no PIN.
  auto software = startSigning(imported);
  EXPECT_TRUE(approveWithPIN(frontend).value("ok", false));
  EXPECT_TRUE(software.get());
  EXPECT_EQ(checkedPINs.size(), 3u);
}

TEST_F(PINApproval, AWrongPINIsAskedAgainWithTheTriesLeftUntilTheHardwareSaysWait) {
  usePAM(PAMService::permit);
  Frontend frontend{"1111", {}};
  auto signing = startSigning(touchID);
  const JSON answer = approveWithPIN(frontend);
  EXPECT_EQ(answer.value("error", ""),
            "too many wrong PINs: the TPM takes PINs again in about 30 s; the request was denied");
  EXPECT_FALSE(signing.get());
  ASSERT_EQ(frontend.prompts.size(), 3u);
  EXPECT_EQ(frontend.prompts[1].text, "wrong PIN; 1 try left");
  EXPECT_EQ(frontend.prompts[1].style, PresencePrompt::Style::error);
  EXPECT_EQ(lastEntry().outcome, ActivityEntry::Outcome::denied);
  EXPECT_EQ(hardware->signaturesWithPIN, 0);
}

TEST(PresenceSettings, AreOnUnlessTurnedOffAndRemotePauseIsRemembered) {
  testing::TemporaryDirectory folder;
  auto keychain = std::make_shared<InMemoryKeychain>();
  SupportState support{keychain, std::make_shared<KeychainSealingKey>(keychain), folder.path()};
  EXPECT_TRUE(presenceVerificationEnabled(support)) << "missing means on";
  savePresenceVerification(support, false);
  EXPECT_FALSE(presenceVerificationEnabled(support));
  testing::writeFile(folder.path() / "forged", "{}");
  std::filesystem::rename(folder.path() / "forged", folder.path() / "presence.json");
  EXPECT_TRUE(presenceVerificationEnabled(support)) << "a forged file means on";

  EXPECT_FALSE(remoteApprovalPaused(*keychain));
  EXPECT_EQ(setRemoteApprovalPaused(*keychain, true), kKeychainSuccess);  // added
  EXPECT_TRUE(remoteApprovalPaused(*keychain));
  EXPECT_EQ(setRemoteApprovalPaused(*keychain, false), kKeychainSuccess);  // updated
  EXPECT_FALSE(remoteApprovalPaused(*keychain));
}

// A request that rules send to paired devices is marked "remoteOffline" in the watch stream and
// the pending list while the relay is out of reach, and watchers get it again when that changes.
TEST_F(PresenceFixture, RequestsForPairedDevicesSayWhenTheyMustBeAnsweredHere) {
  agent.replaceRules({Rule::make("to my phone", Decision::askRemote, PurposeMatch::any())});
  agent.setRemoteApprovalAvailable(true);
  auto watcher = ControlClient::connect(socket);
  ASSERT_TRUE(watcher);
  ASSERT_TRUE(watcher->request({{"message", "watch"}}).value("ok", false));
  auto signing = startSigning(imported);
  auto first = watcher->next();
  ASSERT_TRUE(first);
  const std::string id = (*first)["request"]["id"];
  EXPECT_FALSE((*first)["request"].contains("remoteOffline"));

  relayOffline = true;
  control.remoteStatusChanged();
  auto again = watcher->next();
  ASSERT_TRUE(again);
  EXPECT_EQ((*again)["event"], "request");
  EXPECT_EQ((*again)["request"]["id"], id);
  EXPECT_EQ((*again)["request"]["remoteOffline"], true);
  Frontend frontend;
  EXPECT_EQ(send({{"message", "pending"}}, frontend)["pending"][0]["remoteOffline"], true);
  EXPECT_EQ(send({{"message", "status"}}, frontend)["remoteApproval"], "offline");

  relayOffline = false;
  agent.setRemoteApprovalAvailable(false);
  control.remoteStatusChanged();
  auto unavailable = watcher->next();
  ASSERT_TRUE(unavailable);
  EXPECT_EQ((*unavailable)["request"]["remoteOffline"], true);
  EXPECT_EQ(send({{"message", "status"}}, frontend)["remoteApproval"], "unavailable");

  EXPECT_TRUE(
      send({{"message", "answer"}, {"id", id}, {"approve", false}}, frontend).value("ok", false));
  EXPECT_FALSE(signing.get());
}

}  // namespace
}  // namespace quorvane
