#include <gtest/gtest.h>

#include "AgentEngine/OriginBuilder.h"

namespace quorvane {
namespace {

struct HostCase {
  std::string name;
  std::vector<std::string> arguments;
  std::optional<std::string> host;
};

class SSHDestination : public ::testing::TestWithParam<HostCase> {};

TEST_P(SSHDestination, FindsTheHostAnSSHCommandLineNames) {
  EXPECT_EQ(sshDestinationHost(GetParam().arguments), GetParam().host);
}

INSTANTIATE_TEST_SUITE_P(
    OriginBuilder, SSHDestination,
    ::testing::Values(
        HostCase{"PlainHost", {"ssh", "github.com"}, "github.com"},
        HostCase{"OptionsUserAndCommand",
                 {"ssh", "-o", "SendEnv=GIT_PROTOCOL", "git@GitHub.com", "git-upload-pack 'a/b'"},
                 "github.com"},
        HostCase{"SeparatePort", {"ssh", "-p", "2222", "-A", "me@build"}, "[build]:2222"},
        HostCase{"JoinedPort", {"ssh", "-p2222", "build"}, "[build]:2222"},
        HostCase{"DefaultPortOption", {"ssh", "-oPort=22", "build"}, "build"},
        HostCase{"FlagsWithIdentity", {"ssh", "-vvi", "/k", "build", "uptime"}, "build"},
        HostCase{"URL", {"ssh", "ssh://git@host.example:7999/repo"}, "[host.example]:7999"},
        HostCase{"EndOfOptions", {"ssh", "--", "host"}, "host"},
        HostCase{"NoDestination", {"ssh", "-l", "me"}, std::nullopt}),
    [](const ::testing::TestParamInfo<HostCase>& tested) { return tested.param.name; });

TEST(OriginBuilder, TakesThePushHintBeforeTheFetchHint) {
  EXPECT_EQ(gitHintFromArguments({"ssh", "h", "git-upload-pack 'r'"}), GitHint::fetch);
  EXPECT_EQ(gitHintFromArguments({"ssh", "h", "git-upload-archive", "git-receive-pack"}),
            GitHint::push);
  EXPECT_EQ(gitHintFromArguments({"ssh", "h", "uptime"}), std::nullopt);
}

ProcessInfoEntry process(std::string path, std::vector<std::string> arguments = {},
                         bool verified = true) {
  ProcessInfoEntry entry;
  entry.path = path;
  entry.name = path.substr(path.rfind('/') + 1);
  entry.arguments = std::move(arguments);
  entry.signatureValid = verified;
  if (verified) {
    entry.signingIdentifier = path;
    entry.teamIdentifier = "system";
    entry.appleSigned = true;
  }
  return entry;
}

TEST(OriginBuilder, ChoosesTheAppTheUserRecognises) {
  PeerOrigin peer;
  peer.chain = {process("/usr/bin/ssh", {"ssh", "git@github.com", "git-receive-pack 'x'"}),
                process("/usr/bin/git"), process("/usr/bin/bash"),
                process("/usr/bin/gnome-terminal-server"), process("/usr/lib/systemd/systemd")};
  peer.chain[0].workingDirectory = "/home/me/src";
  RequestOrigin origin = buildRequestOrigin(peer);
  EXPECT_EQ(origin.appName, "gnome-terminal-server");
  EXPECT_EQ(origin.appTeamID, "system");
  EXPECT_EQ(origin.chainPaths.size(), 4u);
  EXPECT_EQ(origin.workingDirectory, "/home/me/src");
  EXPECT_EQ(origin.gitHint, GitHint::push);
  EXPECT_EQ(claimedHostOf(peer), "github.com");

  // A coding agent run by node (an interpreter, so unverified) is named from the table.
  peer.chain.insert(peer.chain.begin() + 2,
                    process("/usr/bin/node", {"node", "/opt/@openai/codex/bin/codex.js"}, false));
  origin = buildRequestOrigin(peer);
  EXPECT_EQ(origin.appName, "Codex");
  EXPECT_EQ(origin.appTeamID, std::nullopt);
  EXPECT_EQ(origin.unsignedPrograms, std::vector<std::string>{"/usr/bin/node"});

  EXPECT_EQ(buildRequestOrigin(PeerOrigin{}).appName, "unknown");
}

struct WrapperCase {
  std::string name;
  std::vector<std::string> outerPaths;  // the processes above git, innermost first
};

void PrintTo(const WrapperCase& c, std::ostream* out) { *out << c.name; }

class OriginBuilderWrappers : public ::testing::TestWithParam<WrapperCase> {};

// Wrappers run their arguments and multiplexer servers host shells: like shells, they are never
// the program named, so a commit signed under them is git's.
TEST_P(OriginBuilderWrappers, AreSkippedLikeShells) {
  PeerOrigin peer;
  peer.chain = {process("/usr/bin/ssh-keygen"), process("/usr/bin/git")};
  for (const std::string& path : GetParam().outerPaths) peer.chain.push_back(process(path));
  EXPECT_EQ(buildRequestOrigin(peer).appName, "git");
}

INSTANTIATE_TEST_SUITE_P(
    Chains, OriginBuilderWrappers,
    ::testing::Values(
        WrapperCase{"time", {"/usr/bin/time", "/usr/bin/bash"}},
        WrapperCase{"envNiceNohup", {"/usr/bin/env", "/usr/bin/nice", "/usr/bin/nohup"}},
        WrapperCase{"timeoutFlockXargs",
                    {"/usr/bin/timeout", "/usr/bin/flock", "/usr/bin/xargs", "/usr/bin/bash"}},
        WrapperCase{"sudoRunuserSetsid",
                    {"/usr/bin/sudo", "/usr/sbin/runuser", "/usr/bin/setsid", "/usr/bin/zsh"}},
        WrapperCase{"tmuxServer", {"/usr/bin/bash", "tmux: server", "/usr/lib/systemd/systemd"}},
        WrapperCase{"screenServer", {"/usr/bin/bash", "SCREEN", "/usr/lib/systemd/systemd"}}),
    [](const ::testing::TestParamInfo<WrapperCase>& tested) { return tested.param.name; });

}  // namespace
}  // namespace quorvane
