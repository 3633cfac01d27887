#include <gtest/gtest.h>
#include <signal.h>

#include <future>

#include "AgentState/ProtocolIdentity.h"
#include "Platform/FileKeychain.h"
#include "RelayClient/RelayClient.h"
#include "e2e/EndToEndSupport.h"
#include "relay/RelayProcess.h"
#include "support/TestCertificateAuthority.h"

namespace quorvane::testing {
namespace {

// Two homes on this machine: the computer that runs the agent (`quorvane`, home A, with a test
// sshd), and an approving computer (home B, only the quorvane program, no agent), paired through
// a quorvane-relay over HTTPS on loopback with a test certificate authority.
class RemoteApprovalEndToEnd : public ::testing::Test {
 protected:
  static constexpr const char* kApproverName = "second-computer";

  QuorvaneHome quorvane;
  TemporaryDirectory approverHome;
  TemporaryDirectory relayFolder;
  TestCertificateAuthority certificates;
  std::unique_ptr<RelayProcess> relay;
  std::string relayURL;
  int pairings = 0;
  int logins = 0;

  void SetUp() override {
    ASSERT_TRUE(certificates.make("remote approval"));
    relay = std::make_unique<RelayProcess>(
        std::vector<std::string>{"--listen", "127.0.0.1:0", "--tls-cert",
                                 certificates.certificate().string(), "--tls-key",
                                 certificates.key().string(), "--db",
                                 (relayFolder.path() / "relay.sqlite").string(), "--max-wait", "2"},
        relayFolder.path() / "relay.log");
    relayURL = "https://127.0.0.1:" + std::to_string(relay->port()) + "/";
    const std::vector<std::string> setRelay = {
        "remote", "relay", relayURL, "--ca-file", certificates.ca().string(), "--yes"};
    ASSERT_EQ(onComputer(setRelay).exitCode, 0);
    ASSERT_EQ(onApprover(setRelay).exitCode, 0);
    quorvane.quorvane({"keys", "generate", "login"});
  }

  CommandResult onComputer(const std::vector<std::string>& arguments) {
    return quorvane.quorvane(arguments, true);
  }

  // The command line of `quorvane` in the approving computer's home.
  std::vector<std::string> approverCommand(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {
        "env", "HOME=" + approverHome.path().string(),
        "XDG_DATA_HOME=" + (approverHome.path() / "data").string(),
        "QUORVANE_TPM_TCTI=device:" + (approverHome.path() / "no-tpm").string(),
        QUORVANE_CLI_BINARY};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return command;
  }
  CommandResult onApprover(const std::vector<std::string>& arguments) {
    return runCommand(approverCommand(arguments));
  }

  JSON approverJSON(const std::vector<std::string>& arguments) {
    std::vector<std::string> withJSON = arguments;
    withJSON.push_back("--json");
    CommandResult result = onApprover(withJSON);
    EXPECT_EQ(result.exitCode, 0) << result.output;
    return JSON::parse(result.output, nullptr, false);
  }

  // Pairs the two homes as the README says: `devices pair` shows a code, `approver pair CODE`
  // takes it, and both confirm the same short code (--yes, as a script does).
  void pair() {
    const auto output = quorvane.home() / ("pair-" + std::to_string(++pairings) + ".log");
    BackgroundProcess pairing(
        {QUORVANE_CLI_BINARY, "devices", "pair", "--name", kApproverName, "--yes"}, output);
    std::string code;
    ASSERT_TRUE(eventually(
        [&] {
          if (!std::filesystem::exists(output)) return false;
          const std::string text = readFile(output);
          const size_t start = text.find("quorvane:pair:");
          if (start == std::string::npos || text.find('\n', start) == std::string::npos)
            return false;
          code = text.substr(start, text.find('\n', start) - start);
          return true;
        },
        std::chrono::seconds(20)))
        << readFile(output);
    CommandResult joined = onApprover({"approver", "pair", code, "--yes"});
    ASSERT_EQ(joined.exitCode, 0) << joined.output;
    ASSERT_EQ(pairing.waitFor(std::chrono::seconds(20)), 0) << readFile(output);
  }

  // Waits until the approving computer has exactly `count` requests and returns them.
  JSON approverWaitsFor(size_t count) {
    JSON pending;
    EXPECT_TRUE(eventually(
        [&] {
          pending = approverJSON({"approver", "pending"});
          return pending.is_array() && pending.size() == count;
        },
        std::chrono::seconds(20)))
        << pending.dump();
    return pending;
  }

  // Answers the approving computer's single request with `answer` ("approve", "deny", …).
  void answerOnApprover(const std::vector<std::string>& answer) {
    JSON pending = approverWaitsFor(1);
    ASSERT_EQ(pending.size(), 1u);
    std::vector<std::string> command = {"approver", "answer", pending[0]["id"].get<std::string>()};
    command.insert(command.end(), answer.begin(), answer.end());
    CommandResult answered = onApprover(command);
    ASSERT_EQ(answered.exitCode, 0) << answered.output;
  }

  // ssh to `server` as a program of its own: started through `setsid -f`, so that once its shell
  // is orphaned the ancestors the agent sees are ssh and that shell alone. ssh is then the program
  // asking, a verified one (root's, in root's folders), which approval windows need; the test
  // program itself, in a writable build folder, is not.
  std::future<CommandResult> login(const SSHServer& server,
                                   const std::vector<std::string>& remote = {"echo", "in"}) {
    const auto folder = quorvane.home() / ("login-" + std::to_string(++logins));
    std::filesystem::create_directories(folder);
    std::string command;
    for (const std::string& argument : quorvane.sshCommand(server.port(), remote))
      command += "'" + argument + "' ";
    const std::string script =
        "exec >/dev/null 2>&1; cd '" + folder.string() +
        "' || exit; i=0; while [ \"$(cut -d' ' -f4 /proc/$$/stat)\" != 1 ] && [ $i -lt 250 ]; "
        "do i=$((i+1)); sleep 0.02; done; " +
        command + ">out 2>&1; echo $? >rc.tmp && mv rc.tmp rc";
    EXPECT_EQ(runCommand({"setsid", "-f", "sh", "-c", script}).exitCode, 0);
    return std::async(std::launch::async, [folder] {
      CommandResult result{-1, ""};
      if (eventually([&] { return std::filesystem::exists(folder / "rc"); },
                     std::chrono::seconds(90))) {
        result.exitCode = std::stoi(readFile(folder / "rc"));
        result.output = readFile(folder / "out");
      }
      return result;
    });
  }

  std::unique_ptr<SSHServer> startServer() {
    std::string line = quorvane.quorvane({"keys", "public", "login"}).output;
    auto server = std::make_unique<SSHServer>(
        quorvane.home() / "sshd", std::vector<std::string>{line.substr(0, line.find('\n'))});
    writeFile(quorvane.home() / ".ssh" / "known_hosts", server->knownHostsLine() + "\n");
    return server;
  }

  void askRemoteForLogins() {
    quorvane.quorvane({"rules", "add", "--name", "logins from afar", "--decision", "askRemote",
                       "--purpose", "login", "--yes"});
  }
};

TEST_F(RemoteApprovalEndToEnd, ALoginIsApprovedDeniedAndApprovedForFiveMinutesFromAnotherComputer) {
  pair();
  JSON devices = quorvane.quorvaneJSON({"devices", "list"});
  ASSERT_EQ(devices.size(), 1u) << devices.dump();
  EXPECT_EQ(devices[0]["name"], kApproverName);
  JSON computers = approverJSON({"approver", "list"});
  ASSERT_EQ(computers.size(), 1u) << computers.dump();

  askRemoteForLogins();
  auto server = startServer();

  auto approved = login(*server);
  answerOnApprover({"approve"});
  CommandResult result = approved.get();
  EXPECT_EQ(result.exitCode, 0) << result.output;
  EXPECT_EQ(quorvane.lastEntry()["decidedBy"], kApproverName);

  auto denied = login(*server);
  answerOnApprover({"deny"});
  EXPECT_NE(denied.get().exitCode, 0);
  EXPECT_EQ(quorvane.lastEntry()["outcome"], "denied");

  auto windowed = login(*server);
  answerOnApprover({"approve", "--five-minutes"});
  EXPECT_EQ(windowed.get().exitCode, 0);
  EXPECT_EQ(login(*server, {"true"}).get().exitCode, 0)
      << "the window lets the second login through without asking";
  EXPECT_NE(quorvane.lastEntry()["decidedBy"].get<std::string>().find("approval window"),
            std::string::npos);
}

TEST_F(RemoteApprovalEndToEnd, AnAnswerOnThisComputerWinsAndTheApproverDropsTheRequest) {
  pair();
  askRemoteForLogins();
  auto server = startServer();

  auto racing = login(*server);
  approverWaitsFor(1);
  quorvane.approveNext();
  CommandResult raced = racing.get();
  EXPECT_EQ(raced.exitCode, 0) << raced.output;
  approverWaitsFor(0);
}

TEST_F(RemoteApprovalEndToEnd, WithTheRelayGoneTheRequestSaysOfflineAndIsAnsweredHere) {
  pair();
  askRemoteForLogins();
  auto server = startServer();

  auto waiting = login(*server);
  approverWaitsFor(1);
  relay->stop(SIGTERM);
  JSON pending;
  EXPECT_TRUE(eventually(
      [&] {
        pending = quorvane.quorvaneJSON({"pending"});
        return pending.size() == 1 && pending[0].value("remoteOffline", false);
      },
      std::chrono::seconds(20)))
      << pending.dump();
  quorvane.approveNext();
  EXPECT_EQ(waiting.get().exitCode, 0);
}

// The agent says in its output why it refused an answer.
bool agentRefused(const QuorvaneHome& home, const std::string& kind) {
  return eventually(
      [&] {
        return readFile(home.home() / "agent.log")
                   .find("refused an answer from the relay: " + kind) != std::string::npos;
      },
      std::chrono::seconds(20));
}

TEST_F(RemoteApprovalEndToEnd, AReplayedAnswerIsRefusedAndTheNextRequestStillGoesThrough) {
  pair();
  askRemoteForLogins();
  auto server = startServer();
  auto first = login(*server);
  answerOnApprover({"approve"});
  ASSERT_EQ(first.get().exitCode, 0);

  // Someone with this computer's mailbox token (the relay, say) posts the answer again.
  FileKeychain keychain;
  const std::optional<MailboxCredentials> mailbox =
      loadOwnMailbox(keychain, relayURL, MailboxRole::asking);
  ASSERT_TRUE(mailbox);
  RelayClient client(RelayEndpoint{relayURL, certificates.ca(), {}});
  size_t replayed = 0;
  for (const RelayMessage& message : client.fetch(*mailbox, false))
    if (message.envelope.kind == EnvelopeKind::approvalResponse) {
      client.send(addressOf(*mailbox), message.envelope, false);
      ++replayed;
    }
  ASSERT_EQ(replayed, 1u);

  auto second = login(*server);
  EXPECT_TRUE(agentRefused(quorvane, "alreadyAnswered"));
  answerOnApprover({"approve"});
  EXPECT_EQ(second.get().exitCode, 0);
}

TEST_F(RemoteApprovalEndToEnd, ADeviceLimitedToOtherKeysWhileARequestWaitsCannotDecideIt) {
  pair();
  quorvane.quorvane({"keys", "generate", "other"});
  askRemoteForLogins();
  auto server = startServer();
  auto waiting = login(*server);
  JSON pending = approverWaitsFor(1);
  ASSERT_EQ(pending.size(), 1u);
  quorvane.quorvane({"devices", "allow", kApproverName, "--key", "other"});
  ASSERT_EQ(
      onApprover({"approver", "answer", pending[0]["id"].get<std::string>(), "approve"}).exitCode,
      0);
  EXPECT_TRUE(agentRefused(quorvane, "notAllowedForKey"));
  quorvane.approveNext();
  EXPECT_EQ(waiting.get().exitCode, 0);
}

TEST_F(RemoteApprovalEndToEnd, EitherSideUnpairs) {
  pair();
  ASSERT_EQ(onComputer({"devices", "remove", kApproverName}).exitCode, 0);
  EXPECT_TRUE(quorvane.quorvaneJSON({"devices", "list"}).empty());
  JSON computers;
  EXPECT_TRUE(eventually(
      [&] {
        approverJSON({"approver", "pending"});  // takes in the notice
        computers = approverJSON({"approver", "list"});
        return computers.empty();
      },
      std::chrono::seconds(20)))
      << computers.dump();

  pair();
  JSON listed = approverJSON({"approver", "list"});
  ASSERT_EQ(listed.size(), 1u);
  CommandResult unpaired =
      onApprover({"approver", "unpair", listed[0]["name"].get<std::string>(), "--yes"});
  ASSERT_EQ(unpaired.exitCode, 0) << unpaired.output;
  EXPECT_TRUE(approverJSON({"approver", "list"}).empty());
  // The agent takes in the notice when it next looks at its mailbox: at the next request that
  // would go to paired devices, which then stays on this computer.
  askRemoteForLogins();
  auto server = startServer();
  auto local = login(*server);
  quorvane.approveNext();
  EXPECT_EQ(local.get().exitCode, 0);
  EXPECT_TRUE(eventually(
      [&] {
        return quorvane.quorvaneJSON({"devices", "list"}).empty();
      },
      std::chrono::seconds(20)));
}

// Ctrl-C at the question whether the codes match stops each side with nothing stored, and a
// pairing afterwards goes through.
TEST_F(RemoteApprovalEndToEnd, CtrlCAtTheCodeQuestionStoresNothingOnEitherSide) {
  using namespace std::chrono_literals;
  TerminalProcess computer({QUORVANE_CLI_BINARY, "devices", "pair", "--name", kApproverName});
  ASSERT_TRUE(computer.waitForOutput("quorvane:pair:", 20s)) << computer.output();
  ASSERT_TRUE(computer.waitForOutput("\n", 5s));
  const std::string shown = computer.output();
  const size_t start = shown.find("quorvane:pair:");
  const std::string code = shown.substr(start, shown.find_first_of("\r\n ", start) - start);

  TerminalProcess approver(approverCommand({"approver", "pair", code}));
  const std::string question = "Do both screens show the same code? [y/N]";
  ASSERT_TRUE(approver.waitForOutput(question, 20s)) << approver.output();
  ASSERT_TRUE(computer.waitForOutput(question, 20s)) << computer.output();

  for (TerminalProcess* side : {&approver, &computer}) {
    side->type("\x03");
    EXPECT_EQ(side->waitFor(20s), 130) << side->output();
    EXPECT_NE(side->output().find("pairing stopped; nothing was stored"), std::string::npos)
        << side->output();
  }
  EXPECT_EQ(quorvane.quorvaneJSON({"devices", "list"}).size(), 0u);
  EXPECT_EQ(approverJSON({"approver", "list"}).size(), 0u);
  pair();
}

}  // namespace
}  // namespace quorvane::testing
