#include <gtest/gtest.h>
#include <signal.h>

#include <future>

#include "Platform/FileKeychain.h"
#include "e2e/EndToEndSupport.h"

namespace quorvane::testing {
namespace {

// The whole system with real OpenSSH and git in a temporary home. OpenSSH takes "~" from the
// password database, not from HOME, so every ssh command names its files explicitly.
class EndToEnd : public ::testing::Test {
 protected:
  QuorvaneHome quorvane;

  std::string publicKey(const std::string& name) {
    std::string line = quorvane.quorvane({"keys", "public", name}).output;
    return line.substr(0, line.find('\n'));
  }

  std::vector<std::string> ssh(int port, const std::vector<std::string>& remote,
                               bool forwardAgent = false) {
    return quorvane.sshCommand(port, remote, forwardAgent);
  }

  std::future<CommandResult> inBackground(std::vector<std::string> command) {
    return std::async(std::launch::async, [command] { return runCommand(command); });
  }
};

TEST_F(EndToEnd, SSHAddSeesKeysInOrderAndCannotChangeThem) {
  quorvane.quorvane({"keys", "generate", "first"});
  quorvane.quorvane({"keys", "generate", "second", "--type", "ecdsa-p256"});
  CommandResult listed = runCommand({"ssh-add", "-L"});
  ASSERT_EQ(listed.exitCode, 0);
  EXPECT_EQ(listed.output, publicKey("first") + "\n" + publicKey("second") + "\n");

  EXPECT_NE(runCommand({"ssh-add", "-D"}).exitCode, 0);
  ASSERT_EQ(runCommand({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f",
                        (quorvane.home() / "plain").string()})
                .exitCode,
            0);
  EXPECT_NE(runCommand({"ssh-add", (quorvane.home() / "plain").string()}).exitCode, 0);

  // ssh-add reads the lock passphrase through SSH_ASKPASS when it has no terminal.
  writeFile(quorvane.home() / "askpass", "#!/bin/sh\necho passphrase\n");
  std::filesystem::permissions(quorvane.home() / "askpass", std::filesystem::perms::owner_all);
  ::setenv("SSH_ASKPASS", (quorvane.home() / "askpass").c_str(), 1);
  ::setenv("SSH_ASKPASS_REQUIRE", "force", 1);
  EXPECT_NE(runCommand({"ssh-add", "-X"}).exitCode, 0) << "clients cannot unlock";
  EXPECT_EQ(runCommand({"ssh-add", "-x"}).exitCode, 0);
  EXPECT_EQ(runCommand({"ssh-add", "-L"}).output, listed.output) << "locked, still listed";
  EXPECT_NE(runCommand({"ssh-add", "-X"}).exitCode, 0);
  quorvane.quorvane({"unlock"});
}

TEST_F(EndToEnd, SSHKeygenSignsAfterApprovalAndTheSignatureVerifies) {
  quorvane.quorvane({"keys", "generate", "signer"});
  writeFile(quorvane.home() / "signer.pub", publicKey("signer") + "\n");
  writeFile(quorvane.home() / "message", "release 1.0\n");
  auto signing = inBackground({"ssh-keygen", "-Y", "sign", "-n", "file", "-f",
                               (quorvane.home() / "signer.pub").string(),
                               (quorvane.home() / "message").string()});
  JSON pending = quorvane.waitForPending(1);
  ASSERT_EQ(pending.size(), 1u);
  EXPECT_EQ(pending[0]["reason"].get<std::string>().find(
                " for sign data (file) with key “signer”") != std::string::npos,
            true);
  quorvane.approveNext();
  ASSERT_EQ(signing.get().exitCode, 0);

  writeFile(quorvane.home() / "allowed", "me@example.com " + publicKey("signer") + "\n");
  EXPECT_EQ(
      runCommand({"ssh-keygen", "-Y", "verify", "-f", (quorvane.home() / "allowed").string(), "-I",
                  "me@example.com", "-n", "file", "-s", (quorvane.home() / "message.sig").string()},
                 quorvane.home() / "message")
          .exitCode,
      0);
  JSON entry = quorvane.lastEntry();
  EXPECT_EQ(entry["purpose"], "sign:file");
  EXPECT_EQ(entry["outcome"], "signed");

  // The agent's own output tells the key count after the change, the wait and the outcome.
  const std::string output = readFile(quorvane.home() / "agent.log");
  EXPECT_NE(output.find("serving 1 key\n"), std::string::npos) << output;
  EXPECT_NE(output.find("waiting for your decision: "), std::string::npos) << output;
  EXPECT_NE(output.find("with key “signer”, sign:file; decided by "), std::string::npos) << output;
}

TEST_F(EndToEnd, SSHLoginsAreBoundToTheRealHostAndRulesCanAllowThem) {
  quorvane.quorvane({"keys", "generate", "login"});
  SSHServer server(quorvane.home() / "sshd", {publicKey("login")});
  writeFile(quorvane.home() / ".ssh" / "known_hosts", server.knownHostsLine() + "\n");

  auto first = inBackground(ssh(server.port(), {"echo", "in"}));
  quorvane.approveNext();
  CommandResult result = first.get();
  ASSERT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, "in\n");
  JSON entry = quorvane.lastEntry();
  EXPECT_EQ(entry["purpose"], "login");
  EXPECT_EQ(entry["host"], currentUserName() + "@[127.0.0.1]:" + std::to_string(server.port()));
  EXPECT_EQ(entry["hostVerified"], true);
  EXPECT_EQ(entry["hostKeyFingerprint"], server.hostKeyFingerprint());

  quorvane.quorvane({"rules", "add", "--name", "this server", "--decision", "allow", "--purpose",
                     "login", "--host-key", server.hostKeyFingerprint(), "--yes"});
  EXPECT_EQ(runCommand(ssh(server.port(), {"true"})).exitCode, 0) << "no prompt this time";
  EXPECT_EQ(quorvane.lastEntry()["decidedBy"], "rule “this server”");
}

TEST_F(EndToEnd, AForwardedLoginShowsItsHopAndNeedsAllowForwarded) {
  quorvane.quorvane({"keys", "generate", "hop"});
  SSHServer jump(quorvane.home() / "jump", {publicKey("hop")});
  SSHServer target(quorvane.home() / "target", {publicKey("hop")});
  const auto knownHosts = quorvane.home() / ".ssh" / "known_hosts";
  writeFile(knownHosts, jump.knownHostsLine() + "\n" + target.knownHostsLine() + "\n");
  quorvane.quorvane({"rules", "add", "--name", "target", "--decision", "allow", "--purpose",
                     "login", "--host-key", target.hostKeyFingerprint(), "--yes"});

  // On the jump host, ssh uses the forwarded agent (SSH_AUTH_SOCK set by sshd).
  auto login = inBackground(
      ssh(jump.port(),
          {"ssh", "-F", "/dev/null", "-o", "BatchMode=yes", "-o",
           "UserKnownHostsFile=" + knownHosts.string(), "-p", std::to_string(target.port()),
           currentUserName() + "@127.0.0.1", "echo", "through"},
          true));
  quorvane.approveNext();  // the login to the jump host
  quorvane.approveNext();  // the forwarded login: the rule without --allow-forwarded does not match
  CommandResult result = login.get();
  ASSERT_EQ(result.exitCode, 0) << quorvane.lastEntry().dump();
  EXPECT_EQ(result.output, "through\n");
  JSON entry = quorvane.lastEntry();
  EXPECT_EQ(entry["hostKeyFingerprint"], target.hostKeyFingerprint());
  EXPECT_EQ(entry["forwardedVia"], JSON::array({jump.hostKeyFingerprint()}));
  EXPECT_EQ(entry["decision"], "askLocal");
}

TEST_F(EndToEnd, GitSignsCommitsWithAnAgentKey) {
  quorvane.quorvane({"keys", "generate", "git"});
  const auto repository = quorvane.home() / "repo";
  const std::string key = publicKey("git");
  writeFile(quorvane.home() / "allowed", "me@example.com " + key + "\n");
  auto git = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"git", "-C", repository.string()});
    return runCommand(arguments);
  };
  ASSERT_EQ(runCommand({"git", "init", "-q", repository.string()}).exitCode, 0);
  for (auto setting : std::vector<std::pair<std::string, std::string>>{
           {"user.name", "Me"},
           {"user.email", "me@example.com"},
           {"gpg.format", "ssh"},
           {"user.signingkey", "key::" + key},
           {"gpg.ssh.allowedSignersFile", (quorvane.home() / "allowed").string()}})
    ASSERT_EQ(git({"config", setting.first, setting.second}).exitCode, 0);

  auto commit = inBackground(
      {"git", "-C", repository.string(), "commit", "-q", "-S", "--allow-empty", "-m", "signed"});
  quorvane.approveNext();
  ASSERT_EQ(commit.get().exitCode, 0);
  EXPECT_EQ(git({"verify-commit", "HEAD"}).exitCode, 0);
  EXPECT_EQ(quorvane.lastEntry()["purpose"], "sign:git");
}

TEST_F(EndToEnd, LockPendingLimitAndDenialsWorkAcrossProcesses) {
  quorvane.quorvane({"keys", "generate", "busy"});
  writeFile(quorvane.home() / "busy.pub", publicKey("busy") + "\n");
  writeFile(quorvane.home() / "message", "x");
  const std::vector<std::string> sign = {"ssh-keygen",
                                         "-Y",
                                         "sign",
                                         "-n",
                                         "file",
                                         "-f",
                                         (quorvane.home() / "busy.pub").string(),
                                         (quorvane.home() / "message").string()};
  auto locked = inBackground(sign);
  quorvane.waitForPending(1);
  quorvane.quorvane({"lock"});
  quorvane.approveNext();
  EXPECT_NE(locked.get().exitCode, 0);
  EXPECT_EQ(quorvane.lastEntry()["note"], "locked while waiting");
  quorvane.quorvane({"unlock"});

  std::vector<std::future<CommandResult>> waiting;
  for (int i = 0; i < 3; ++i) {
    waiting.push_back(inBackground(sign));
    quorvane.waitForPending(static_cast<size_t>(i + 1));
  }
  EXPECT_NE(runCommand(sign).exitCode, 0) << "the fourth is refused at once";
  EXPECT_EQ(quorvane.lastEntry()["note"], "too many pending requests");

  for (const JSON& request : quorvane.quorvaneJSON({"pending"}))
    quorvane.quorvane({"deny", request["id"].get<std::string>()});
  for (auto& result : waiting) EXPECT_NE(result.get().exitCode, 0);
  EXPECT_NE(runCommand(sign).exitCode, 0) << "three denials block the program";
  EXPECT_TRUE(quorvane.lastEntry()["decidedBy"].get<std::string>().starts_with("blocked until "));
  EXPECT_EQ(quorvane.quorvaneJSON({"pending"}).size(), 0u) << "a blocked request never asks";
}

// Every command finds a key by its name, so generate, import and rename refuse a taken one.
TEST_F(EndToEnd, AKeyNameIsNeverTakenTwice) {
  quorvane.quorvane({"keys", "generate", "laptop"});
  EXPECT_EQ(quorvane.quorvane({"keys", "generate", "laptop"}, true).exitCode, 1);
  quorvane.quorvane({"keys", "generate", "spare"});
  EXPECT_EQ(quorvane.quorvane({"keys", "rename", "spare", "laptop"}, true).exitCode, 1);
  quorvane.quorvane({"keys", "rename", "laptop", "laptop"});  // its own name is not taken

  const auto file = quorvane.home() / "id_ed25519";
  ASSERT_EQ(runCommand({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "laptop", "-f",
                        file.string()})
                .exitCode,
            0);
  EXPECT_EQ(quorvane.quorvane({"keys", "import", file.string()}, true).exitCode, 1);
  quorvane.quorvane({"keys", "import", file.string(), "--name", "desktop"});

  std::vector<std::string> names;
  for (const JSON& key : quorvane.quorvaneJSON({"keys", "list"})) names.push_back(key["name"]);
  EXPECT_EQ(names, (std::vector<std::string>{"laptop", "spare", "desktop"}));
  EXPECT_FALSE(publicKey("laptop").empty()) << "the name still finds exactly one key";
}

TEST_F(EndToEnd, AnExportedLogIsReadableByTheUserAlone) {
  const auto file = quorvane.home() / "activity.csv";
  writeFile(file, "an older export, readable by everyone\n");
  std::filesystem::permissions(file, std::filesystem::perms(0644));
  quorvane.quorvane({"log", "export", "--output", file.string()});
  EXPECT_EQ(std::filesystem::status(file).permissions(), std::filesystem::perms(0600));
}

// A second agent whose control socket would sit in a folder that everyone may write to: it
// refuses to start, changes no folder's mode, and leaves no socket file behind.
TEST_F(EndToEnd, AFailedStartLeavesNothingBehindAndChangesNoFolder) {
  const auto shared = quorvane.home() / "shared";
  std::filesystem::create_directory(shared);
  std::filesystem::permissions(shared, std::filesystem::perms(0777));
  const auto agentSocket = quorvane.home() / "second" / "agent.sock";
  const CommandResult result = runCommand(
      {QUORVANE_AGENT_BINARY, "--pam-config-dir", (quorvane.home() / "pam").string(), "--socket",
       agentSocket.string(), "--control-socket", (shared / "control.sock").string()});
  EXPECT_EQ(result.exitCode, 1);
  EXPECT_FALSE(std::filesystem::exists(agentSocket));
  EXPECT_TRUE(std::filesystem::is_empty(shared));
  EXPECT_EQ(std::filesystem::status(shared).permissions(), std::filesystem::perms(0777));
}

TEST_F(EndToEnd, BothProgramsTellTheirVersion) {
  EXPECT_EQ(quorvane.quorvane({"--version"}).output, "quorvane " QUORVANE_VERSION "\n");
  EXPECT_EQ(runCommand({QUORVANE_AGENT_BINARY, "--version"}).output,
            "quorvane-agent " QUORVANE_VERSION "\n");
}

TEST_F(EndToEnd, ImportedKeysSignLikeTheFileTheyCameFrom) {
  const auto key = quorvane.home() / "id_rsa";
  ASSERT_EQ(runCommand({"ssh-keygen", "-q", "-t", "rsa", "-b", "2048", "-N", "secret words", "-C",
                        "laptop rsa", "-f", key.string()})
                .exitCode,
            0);
  // Without a terminal to ask on, the refusal says how to give the passphrase.
  const CommandResult noTerminal =
      runCommand({"sh", "-c", "\"$0\" keys import \"$1\" 2>&1", QUORVANE_CLI_BINARY, key.string()});
  EXPECT_EQ(noTerminal.exitCode, 1);
  EXPECT_NE(noTerminal.output.find("give it with --passphrase-file FILE or --passphrase-stdin"),
            std::string::npos)
      << noTerminal.output;
  writeFile(quorvane.home() / "passphrase", "wrong\n");
  CommandResult wrong = quorvane.quorvane({"keys", "import", key.string(), "--passphrase-file",
                                           (quorvane.home() / "passphrase").string()},
                                          true);
  EXPECT_NE(wrong.exitCode, 0);
  writeFile(quorvane.home() / "passphrase", "secret words\n");
  CommandResult imported = quorvane.quorvane({"keys", "import", key.string(), "--passphrase-file",
                                              (quorvane.home() / "passphrase").string()});
  EXPECT_NE(imported.output.find("Imported “laptop rsa”"), std::string::npos) << imported.output;
  EXPECT_NE(imported.output.find("3072"), std::string::npos) << "the notice for a short RSA key";
  writeFile(quorvane.home() / "junk", "\xff\xfe not text");
  EXPECT_NE(
      quorvane.quorvane({"keys", "import", (quorvane.home() / "junk").string()}, true).exitCode, 0);

  // ssh-keygen signs through the agent with the imported key; the file's own public key verifies.
  std::string publicLine =
      runCommand({"ssh-keygen", "-y", "-P", "secret words", "-f", key.string()}).output;
  writeFile(quorvane.home() / "id_rsa.pub", publicLine);
  writeFile(quorvane.home() / "message", "imported\n");
  auto signing = inBackground({"ssh-keygen", "-Y", "sign", "-n", "file", "-f",
                               (quorvane.home() / "id_rsa.pub").string(),
                               (quorvane.home() / "message").string()});
  quorvane.approveNext();
  ASSERT_EQ(signing.get().exitCode, 0);
  writeFile(quorvane.home() / "allowed", "me " + publicLine);
  EXPECT_EQ(runCommand({"ssh-keygen", "-Y", "verify", "-f", (quorvane.home() / "allowed").string(),
                        "-I", "me", "-n", "file", "-s", (quorvane.home() / "message.sig").string()},
                       quorvane.home() / "message")
                .exitCode,
            0);

  // A client that asks for an SHA-1 signature (ssh-rsa, no SHA-2 flag) is refused before anyone
  // is asked: the login fails at once and the log says why.
  SSHServer server(quorvane.home() / "sshd", {publicLine.substr(0, publicLine.find('\n'))},
                   "PubkeyAcceptedAlgorithms +ssh-rsa\n");
  writeFile(quorvane.home() / ".ssh" / "known_hosts", server.knownHostsLine() + "\n");
  std::vector<std::string> login = ssh(server.port(), {"true"});
  login.insert(login.begin() + 1, {"-o", "PubkeyAcceptedAlgorithms=ssh-rsa"});
  EXPECT_NE(runCommand(login).exitCode, 0);
  JSON entry = quorvane.lastEntry();
  EXPECT_EQ(entry["note"], "SHA-1 RSA signatures (ssh-rsa) are refused");
  EXPECT_EQ(entry["outcome"], "rejected");
}

TEST_F(EndToEnd, AClientKilledWhileWaitingIsLoggedAsDisconnected) {
  quorvane.quorvane({"keys", "generate", "patient"});
  writeFile(quorvane.home() / "patient.pub", publicKey("patient") + "\n");
  writeFile(quorvane.home() / "message", "x");
  BackgroundProcess signer(
      {"ssh-keygen", "-Y", "sign", "-n", "file", "-f", (quorvane.home() / "patient.pub").string(),
       (quorvane.home() / "message").string()},
      quorvane.home() / "signer.log");
  quorvane.waitForPending(1);
  signer.stop(SIGKILL);
  JSON entry;
  EXPECT_TRUE(eventually([&] {
    entry = quorvane.lastEntry();
    return entry.is_object();
  }));
  EXPECT_EQ(entry["note"], "client disconnected");
  EXPECT_EQ(entry["outcome"], "expired");
}

TEST_F(EndToEnd, ApproveUnlockAndRemoteResumeAskForPresenceAndTheTypedAnswerDecides) {
  quorvane.usePAM(PAMService::asks);
  quorvane.quorvane({"keys", "generate", "present"});
  writeFile(quorvane.home() / "present.pub", publicKey("present") + "\n");
  writeFile(quorvane.home() / "message", "x");
  const std::vector<std::string> sign = {"ssh-keygen",
                                         "-Y",
                                         "sign",
                                         "-n",
                                         "file",
                                         "-f",
                                         (quorvane.home() / "present.pub").string(),
                                         (quorvane.home() / "message").string()};
  const std::string right = std::string(kTypedSecret) + "\n";
  // Three wrong answers deny (each wrong one is asked for again); a right one signs.
  for (const std::string& typed : {std::string("wrong\nwrong\nwrong\n"), right}) {
    auto signing = inBackground(sign);
    const std::string id = quorvane.waitForPending(1)[0]["id"];
    CommandResult approve = quorvane.quorvaneTyping({"approve", id}, typed);
    EXPECT_EQ(approve.exitCode == 0, typed == right);
    EXPECT_EQ(signing.get().exitCode == 0, typed == right);
    JSON entry = quorvane.lastEntry();
    EXPECT_EQ(entry["outcome"], typed == right ? "signed" : "denied");
    EXPECT_TRUE(entry["decidedBy"].get<std::string>().starts_with(
        typed == right ? "you, with quorvane approve"
                       : "you, with quorvane approve: verification failed"))
        << entry.dump();
  }

  quorvane.quorvane({"lock"});
  EXPECT_NE(quorvane.quorvaneTyping({"unlock"}, "wrong\n").exitCode, 0);
  EXPECT_NE(quorvane.quorvane({"unlock"}, true).exitCode, 0) << "no answer, no unlock";
  EXPECT_NE(runCommand(sign).exitCode, 0) << "still locked";
  EXPECT_EQ(quorvane.quorvaneTyping({"unlock"}, right).exitCode, 0);

  FileKeychain keychain;
  auto paused = [&] {
    auto item = keychain.read("com.tallowmere.quorvane.settings", "remote-paused");
    return item.status == kKeychainSuccess && item.data.size() == 1 && item.data.data()[0] == 1;
  };
  EXPECT_EQ(quorvane.quorvane({"remote", "pause"}).output, "Remote approval is paused.\n");
  EXPECT_TRUE(paused());
  EXPECT_EQ(quorvane.quorvane({"remote", "resume"}, true).exitCode, 2)
      << "without a terminal to confirm on, only --yes resumes";
  EXPECT_NE(quorvane.quorvaneTyping({"remote", "resume", "--yes"}, "wrong\n").exitCode, 0);
  EXPECT_TRUE(paused());
  EXPECT_EQ(quorvane.quorvaneTyping({"remote", "resume", "--yes"}, right).output,
            "Remote approval is on again.\n");
  EXPECT_FALSE(paused());
}

}  // namespace
}  // namespace quorvane::testing
