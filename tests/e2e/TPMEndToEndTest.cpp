#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <map>

#include "e2e/EndToEndSupport.h"
#include "support/SoftwareTPM.h"

namespace quorvane::testing {
namespace {

// The whole system with its keys in a software TPM (one for the program, started first so that
// every agent of the tests finds it through QUORVANE_TPM_TCTI), against real ssh and sshd.
class TPMEndToEnd : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    if (!SoftwareTPM::installed()) return;
    tpmFolder = new TemporaryDirectory();
    tpm = new SoftwareTPM(tpmFolder->path());
    ::setenv("QUORVANE_TPM_TCTI", tpm->tcti().c_str(), 1);
  }
  static void TearDownTestSuite() {
    delete tpm;
    delete tpmFolder;
    ::unsetenv("QUORVANE_TPM_TCTI");
  }
  void SetUp() override {
    if (tpm == nullptr) GTEST_SKIP() << "swtpm is not installed";
    quorvane = std::make_unique<QuorvaneHome>();
  }

  std::string publicKey(const std::string& name) {
    std::string line = quorvane->quorvane({"keys", "public", name}).output;
    return line.substr(0, line.find('\n'));
  }

  // `quorvane` with its standard error in the output, under another TPM configuration.
  CommandResult quorvaneWithTCTI(const std::string& tcti, const std::string& arguments) {
    return runCommand(
        {"sh", "-c",
         "QUORVANE_TPM_TCTI='" + tcti + "' " + QUORVANE_CLI_BINARY + " " + arguments + " 2>&1"});
  }

  // `quorvane` typing `typed`, with its standard error (the agent's prompts) in the output.
  CommandResult quorvaneTypingAll(const std::string& arguments, const std::string& typed) {
    writeFile(quorvane->home() / "typed", typed);
    return runCommand({"sh", "-c", std::string(QUORVANE_CLI_BINARY) + " " + arguments + " 2>&1"},
                      quorvane->home() / "typed");
  }

  // Starts ssh-keygen signing a file with the key `name` through the agent.
  std::future<CommandResult> startSigning(const std::string& name) {
    const auto home = quorvane->home();
    writeFile(home / (name + ".pub"), publicKey(name) + "\n");
    writeFile(home / "message", "release 1.0\n");
    std::filesystem::remove(home / "message.sig");
    std::vector<std::string> command = {"ssh-keygen",
                                        "-Y",
                                        "sign",
                                        "-n",
                                        "file",
                                        "-f",
                                        (home / (name + ".pub")).string(),
                                        (home / "message").string()};
    return std::async(std::launch::async, [command] { return runCommand(command); });
  }

  std::string nextPendingID() {
    JSON pending = quorvane->waitForPending(1);
    return pending.size() == 1 ? pending[0]["id"].get<std::string>() : "";
  }

  std::vector<std::string> ssh(int port, const std::vector<std::string>& remote) {
    return quorvane->sshCommand(port, remote);
  }

  static inline TemporaryDirectory* tpmFolder = nullptr;
  static inline SoftwareTPM* tpm = nullptr;
  std::unique_ptr<QuorvaneHome> quorvane;
};

TEST_F(TPMEndToEnd, ATPMKeyIsListedAndLogsInToSSHDAfterApproval) {
  const std::string made = quorvane->quorvane({"keys", "generate", "laptop"}).output;
  EXPECT_NE(made.find("in the TPM"), std::string::npos) << made;
  JSON listed = quorvane->quorvaneJSON({"keys", "list"});
  ASSERT_EQ(listed.size(), 1u);
  EXPECT_EQ(listed[0]["location"], "tpm");
  EXPECT_EQ(listed[0]["protection"], "remoteApproval");
  EXPECT_EQ(listed[0]["algorithm"], "ecdsa-sha2-nistp256");
  EXPECT_NE(
      quorvane->quorvane({"keys", "list"}).output.find("laptop  ecdsa-sha2-nistp256  SHA256:"),
      std::string::npos);

  // doctor sees the TPM answer, and the key available.
  const JSON checks = JSON::parse(quorvane->quorvane({"doctor", "--json"}, true).output);
  std::map<std::string, std::string> details;
  for (const JSON& check : checks)
    details[check["title"]] =
        check["level"].get<std::string>() + ": " + check["detail"].get<std::string>();
  EXPECT_EQ(details["TPM"],
            "ok: Ready at " + tpm->tcti() + ": new keys are made there and can never be copied.");
  EXPECT_EQ(details["Keys in Quorvane's keychain"], "ok: 1 key available");

  SSHServer server(quorvane->home() / "sshd", {publicKey("laptop")});
  writeFile(quorvane->home() / ".ssh" / "known_hosts", server.knownHostsLine() + "\n");
  auto login = std::async(std::launch::async, [command = ssh(server.port(), {"echo", "in"})] {
    return runCommand(command);
  });
  quorvane->approveNext();
  const CommandResult result = login.get();
  ASSERT_EQ(result.exitCode, 0);
  EXPECT_EQ(result.output, "in\n");
  EXPECT_EQ(quorvane->lastEntry()["outcome"], "signed");
}

TEST_F(TPMEndToEnd, ATPMSignatureVerifiesWithSSHKeygen) {
  std::vector<std::string> signing = quorvane->signingCommand("signer");
  auto signed_ = std::async(std::launch::async, [signing] { return runCommand(signing); });
  quorvane->approveNext();
  ASSERT_EQ(signed_.get().exitCode, 0);
  ASSERT_EQ(quorvane->quorvaneJSON({"keys", "list"})[0]["location"], "tpm");
  EXPECT_EQ(quorvane->lastEntry()["outcome"], "signed");

  const auto home = quorvane->home();
  writeFile(home / "allowed", "me@example.com " + publicKey("signer") + "\n");
  EXPECT_EQ(runCommand({"ssh-keygen", "-Y", "verify", "-f", (home / "allowed").string(), "-I",
                        "me@example.com", "-n", "file", "-s", (home / "message.sig").string()},
                       home / "message")
                .exitCode,
            0);
}

// A PIN key: the PIN is asked with each approval and checked by the TPM; wrong PINs are told with
// the tries left, and Quorvane stops before the TPM's lockout, saying how long to wait. (Windows
// keep the PIN only for programs that can be told apart, which the test's own are not; the agent
// tests cover windows and locks.)
TEST_F(TPMEndToEnd, APINKeySignsWithItsPINAndStopsAskingBeforeTheLockout) {
  const CommandResult made =
      quorvane->quorvaneTyping({"keys", "generate", "pin", "--protection", "pin"}, "2468\n");
  ASSERT_EQ(made.exitCode, 0);
  EXPECT_NE(made.output.find("signs with your PIN and approval"), std::string::npos);
  EXPECT_EQ(quorvane->quorvaneJSON({"keys", "list"})[0]["protection"], "touchIDOnly");

  auto first = startSigning("pin");
  const CommandResult approved = quorvaneTypingAll("approve " + nextPendingID(), "2468\n");
  EXPECT_EQ(approved.exitCode, 0) << approved.output;
  EXPECT_NE(approved.output.find("PIN of the TPM key “pin”"), std::string::npos) << approved.output;
  ASSERT_EQ(first.get().exitCode, 0);

  // The next signature asks again. A wrong PIN is refused with the tries left, and the request
  // keeps waiting for the right one.
  auto third = startSigning("pin");
  const std::string id = nextPendingID();
  const CommandResult wrong = quorvaneTypingAll("approve " + id, "1111\n");
  EXPECT_NE(wrong.exitCode, 0);
  EXPECT_NE(wrong.output.find("wrong PIN; "), std::string::npos) << wrong.output;
  EXPECT_NE(wrong.output.find(" left"), std::string::npos) << wrong.output;
  EXPECT_NE(wrong.output.find("the request keeps waiting"), std::string::npos) << wrong.output;
  EXPECT_EQ(quorvaneTypingAll("approve " + id, "2468\n").exitCode, 0);
  ASSERT_EQ(third.get().exitCode, 0);

  // Wrong PINs until Quorvane stops: the request is denied, with the wait.
  auto fourth = startSigning("pin");
  const CommandResult locked = quorvaneTypingAll(
      "approve " + nextPendingID(), std::string(20, '0') + "\n" + "1111\n1112\n1113\n1114\n1115\n");
  EXPECT_NE(locked.exitCode, 0);
  const CommandResult again = [&] {
    CommandResult result = locked;
    for (int i = 0; i < 5 && result.output.find("the request was denied") == std::string::npos;
         ++i) {
      JSON pending = quorvane->quorvaneJSON({"pending"});
      if (pending.empty()) break;
      result =
          quorvaneTypingAll("approve " + pending[0]["id"].get<std::string>(), "1111\n1112\n1113\n");
    }
    return result;
  }();
  EXPECT_NE(again.output.find("the TPM takes PINs again in about"), std::string::npos)
      << again.output;
  EXPECT_NE(fourth.get().exitCode, 0);
}

// A P-256 key file moved into the TPM signs after the file is gone; an Ed25519 file is refused.
TEST_F(TPMEndToEnd, AnImportedKeyMovedIntoTheTPMSignsWithoutItsFile) {
  const auto home = quorvane->home();
  ASSERT_EQ(runCommand({"ssh-keygen", "-q", "-t", "ecdsa", "-b", "256", "-N", "", "-C", "old", "-f",
                        (home / "old").string()})
                .exitCode,
            0);
  const CommandResult moved =
      quorvane->quorvane({"keys", "import", (home / "old").string(), "--into-tpm"});
  EXPECT_NE(moved.output.find("into the TPM"), std::string::npos) << moved.output;
  const std::string filePublicKey = readFile(home / "old.pub");
  EXPECT_EQ(publicKey("old") + "\n", filePublicKey);
  std::filesystem::remove(home / "old");
  EXPECT_EQ(quorvane->quorvaneJSON({"keys", "list"})[0]["location"], "tpm");

  auto signing = startSigning("old");
  quorvane->approveNext();
  ASSERT_EQ(signing.get().exitCode, 0);
  writeFile(home / "allowed", "me@example.com " + publicKey("old") + "\n");
  EXPECT_EQ(runCommand({"ssh-keygen", "-Y", "verify", "-f", (home / "allowed").string(), "-I",
                        "me@example.com", "-n", "file", "-s", (home / "message.sig").string()},
                       home / "message")
                .exitCode,
            0);

  ASSERT_EQ(
      runCommand({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", (home / "edwards").string()})
          .exitCode,
      0);
  const CommandResult refused =
      quorvaneWithTCTI(tpm->tcti(), "keys import " + (home / "edwards").string() + " --into-tpm");
  EXPECT_EQ(refused.exitCode, 1);
  EXPECT_NE(refused.output.find("TPMs have no Ed25519 keys"), std::string::npos) << refused.output;
}

TEST_F(TPMEndToEnd, WithoutATPMGenerateFallsBackWithANoticeAndTypeTPMFails) {
  const std::string missing = "swtpm:path=" + (quorvane->home() / "no-tpm").string();
  const CommandResult fallback = quorvaneWithTCTI(missing, "keys generate plain");
  ASSERT_EQ(fallback.exitCode, 0) << fallback.output;
  // One line: what is wrong (the TSS's own words for it), and what was made instead.
  const std::string notice = fallback.output.substr(0, fallback.output.find('\n'));
  EXPECT_EQ(notice.find("No usable TPM (cannot connect to the TPM at “" + missing + "”: "), 0u)
      << notice;
  EXPECT_TRUE(notice.ends_with("): made an Ed25519 software key instead.")) << notice;
  EXPECT_EQ(quorvane->quorvaneJSON({"keys", "list"})[0]["location"], "software");

  const CommandResult insisted = quorvaneWithTCTI(missing, "keys generate strict --type tpm");
  EXPECT_EQ(insisted.exitCode, 1);
  EXPECT_EQ(insisted.output.find("quorvane: no usable TPM at " + missing), 0u) << insisted.output;
  EXPECT_NE(insisted.output.find("Nothing was made."), std::string::npos);
  const CommandResult pin = quorvaneWithTCTI(missing, "keys generate strict --protection pin");
  EXPECT_EQ(pin.exitCode, 1);
  EXPECT_EQ(quorvane->quorvaneJSON({"keys", "list"}).size(), 1u);

  const CommandResult mixed =
      quorvaneWithTCTI(tpm->tcti(), "keys generate strict --type ed25519 --protection pin");
  EXPECT_EQ(mixed.exitCode, 1);
  EXPECT_NE(mixed.output.find("--protection is for TPM keys"), std::string::npos);
}

}  // namespace
}  // namespace quorvane::testing
