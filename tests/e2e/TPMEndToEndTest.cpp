#include <gtest/gtest.h>

#include <cstdlib>
#include <future>

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

  std::vector<std::string> ssh(int port, const std::vector<std::string>& remote) {
    std::vector<std::string> command = {
        "ssh",
        "-F",
        "/dev/null",
        "-o",
        "BatchMode=yes",
        "-o",
        "UserKnownHostsFile=" + (quorvane->home() / ".ssh" / "known_hosts").string(),
        "-o",
        "IdentityAgent=" + quorvane->agentSocket().string(),
        "-p",
        std::to_string(port),
        currentUserName() + "@127.0.0.1"};
    command.insert(command.end(), remote.begin(), remote.end());
    return command;
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

TEST_F(TPMEndToEnd, WithoutATPMGenerateFallsBackWithANoticeAndTypeTPMFails) {
  const std::string missing = "swtpm:path=" + (quorvane->home() / "no-tpm").string();
  const CommandResult fallback = quorvaneWithTCTI(missing, "keys generate plain");
  ASSERT_EQ(fallback.exitCode, 0) << fallback.output;
  EXPECT_EQ(fallback.output.substr(0, fallback.output.find('\n')),
            "No usable TPM (cannot connect to the TPM at “" + missing +
                "”: tcti:IO failure): made an Ed25519 software key instead.");
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
