#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdlib>
#include <future>

#include "e2e/EndToEndSupport.h"

namespace quorvane::testing {
namespace {

// The identityagent that `ssh -G` resolves for `host` with `config`, or "" when none is set.
std::string identityAgent(const std::filesystem::path& config, const std::string& host) {
  CommandResult result = runCommand({"ssh", "-G", "-F", config.string(), host});
  EXPECT_EQ(result.exitCode, 0) << host;
  const std::string key = "\nidentityagent ";
  size_t at = ("\n" + result.output).find(key);
  if (at == std::string::npos) return "";
  size_t start = at + key.size() - 1;
  return result.output.substr(start, result.output.find('\n', start) - start);
}

TEST(SetupSSH, SSHUsesTheAgentForEveryHostButTheExcludedAndUndoRestoresTheFile) {
  QuorvaneHome quorvane;
  const auto config = quorvane.home() / ".ssh" / "config";
  const std::string mine = "Host legacy\n  IdentityAgent /run/other.sock\n";
  writeFile(config, mine);
  ASSERT_EQ(::chmod(config.c_str(), 0644), 0);

  JSON dryRun = quorvane.quorvaneJSON({"setup", "ssh", "--exclude", "legacy", "--dry-run"});
  EXPECT_EQ(dryRun["changed"], true);
  EXPECT_EQ(dryRun["written"], false);
  EXPECT_EQ(dryRun["diff"][0]["kind"], "added");
  EXPECT_EQ(quorvane.quorvane({"setup", "ssh", "--exclude", "legacy"}, true).exitCode, 2)
      << "without a terminal to confirm on, nothing is written";
  EXPECT_EQ(readFile(config), mine);

  quorvane.quorvane({"setup", "ssh", "--exclude", "legacy", "--exclude", "*.internal", "--yes"});
  struct stat info {};
  ASSERT_EQ(::stat(config.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644u);
  const auto backups = quorvane.home() / "data" / "quorvane" / "backups";
  ASSERT_EQ(std::distance(std::filesystem::directory_iterator(backups), {}), 1);
  EXPECT_EQ(readFile(std::filesystem::directory_iterator(backups)->path()), mine);

  const std::string socket = quorvane.agentSocket().string();
  for (const auto& [host, agent] :
       std::vector<std::pair<std::string, std::string>>{{"example.com", socket},
                                                        {"127.0.0.1", socket},
                                                        {"legacy", "/run/other.sock"},
                                                        {"db.internal", ""}})
    EXPECT_EQ(identityAgent(config, host), agent) << host;

  quorvane.quorvane({"setup", "ssh", "--undo", "--yes"});
  EXPECT_EQ(readFile(config), mine);
  EXPECT_EQ(quorvane.quorvane({"setup", "ssh", "--undo", "--yes"}).output.find("nothing to undo") !=
                std::string::npos,
            true);
}

struct GitCase {
  const char* name;
  bool inRepository;  // --repo DIR, else the global file
  bool signByDefault;
};

class SetupGit : public ::testing::TestWithParam<GitCase> {
 protected:
  void TearDown() override {
    ::unsetenv("GIT_CONFIG_GLOBAL");
    ::unsetenv("GIT_CONFIG_NOSYSTEM");
  }
};

TEST_P(SetupGit, SignsThroughTheAgentWhateverSSHAuthSockSaysAndUndoRestoresTheSettings) {
  const GitCase& c = GetParam();
  QuorvaneHome quorvane;
  quorvane.quorvane({"keys", "generate", "git"});
  // Another agent in the environment: the helper must not use it.
  ::setenv("SSH_AUTH_SOCK", (quorvane.home() / "other-agent.sock").c_str(), 1);
  ::setenv("GIT_CONFIG_GLOBAL", (quorvane.home() / "gitconfig").c_str(), 1);
  ::setenv("GIT_CONFIG_NOSYSTEM", "1", 1);
  writeFile(quorvane.home() / "gitconfig",
            "[user]\n\tname = Me\n\temail = me@example.com\n\tsigningkey = OLDKEY\n"
            "[gpg]\n\tformat = openpgp\n[tag]\n\tgpgsign = false\n");
  const auto repository = quorvane.home() / "repo";
  ASSERT_EQ(runCommand({"git", "init", "-q", repository.string()}).exitCode, 0);
  auto git = [&](std::vector<std::string> arguments) {
    arguments.insert(arguments.begin(), {"git", "-C", repository.string()});
    return runCommand(arguments);
  };
  const std::string listBefore = git({"config", "--list"}).output;

  std::vector<std::string> setup = {"setup", "git", "--key", "git"};
  if (c.inRepository) setup.insert(setup.end(), {"--repo", repository.string()});
  if (c.signByDefault) setup.push_back("--sign-by-default");
  JSON result = quorvane.quorvaneJSON(setup);
  EXPECT_EQ(
      result["allowedSigner"].get<std::string>().rfind("me@example.com namespaces=\"git\" ", 0),
      0u);

  std::vector<std::string> commit = {
      "git", "-C", repository.string(), "commit", "-q", "--allow-empty", "-m", "signed"};
  if (!c.signByDefault) commit.push_back("-S");
  auto committed = std::async(std::launch::async, [commit] { return runCommand(commit); });
  quorvane.approveNext();
  ASSERT_EQ(committed.get().exitCode, 0);
  EXPECT_EQ(git({"verify-commit", "HEAD"}).exitCode, 0);
  EXPECT_EQ(quorvane.lastEntry()["purpose"], "sign:git");

  std::vector<std::string> undo = {"setup", "git", "--undo"};
  if (c.inRepository) undo.insert(undo.end(), {"--repo", repository.string()});
  quorvane.quorvane(undo);
  EXPECT_EQ(git({"config", "--list"}).output, listBefore);
  EXPECT_FALSE(std::filesystem::exists(quorvane.home() / "data" / "quorvane" /
                                       "git-config-before-quorvane.json"));
  EXPECT_EQ(quorvane.quorvane(undo, true).exitCode, 1) << "a second undo has nothing to restore";
}

INSTANTIATE_TEST_SUITE_P(Scopes, SetupGit,
                         ::testing::Values(GitCase{"globalSigningByDefault", false, true},
                                           GitCase{"repositoryOnRequest", true, false}),
                         [](const auto& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace quorvane::testing
