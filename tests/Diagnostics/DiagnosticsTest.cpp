#include <gtest/gtest.h>

#include <map>
#include <set>

#include "ConfigKit/SSHConfigEditor.h"
#include "Diagnostics/Diagnostics.h"

namespace quorvane {
namespace {

using Level = DiagnosticCheck::Level;

// `hosts` inside the block that setup writes, followed by `after`.
std::string managedConfig(const std::string& hosts, const std::string& after = "") {
  return std::string(SSHConfigEditor::kBeginMarker) + "\n" + hosts +
         std::string(SSHConfigEditor::kEndMarker) + "\n" + after;
}

// A system described by plain fields; starts out healthy with one host in the managed block.
struct FakeProbes final : DiagnosticProbes {
  std::filesystem::path home = "/home/ada";
  AgentUnitState unit = AgentUnitState::enabled;
  AgentAnswer answer{AgentAnswer::Kind::identities, 2};
  std::set<std::string> files = {"/home/ada/.ssh/quorvane/agent.sock"};
  std::map<std::string, std::string> texts = {
      {"/home/ada/.ssh/config", managedConfig("Host github.com\n  IdentityAgent x\n")}};
  ManagerEnvironment manager{true, "/home/ada/.ssh/quorvane/agent.sock"};
  bool unitSetsEnvironment = true;
  std::map<std::string, std::string> identityAgents = {
      {"github.com", "/home/ada/.ssh/quorvane/agent.sock"}};
  std::map<std::string, std::string> variables;
  KeyAvailability keyList{std::nullopt, {{"laptop", true}, {"work", true}}};
  RelayHealth relay;
  bool presence = true;
  AccountPassword password = AccountPassword::usable;
  std::vector<std::string> blocked;
  Date clock{1'800'000'000};

  AgentUnitState agentUnitState() override { return unit; }
  AgentAnswer askAgentForIdentities(const std::filesystem::path&) override { return answer; }
  bool exists(const std::filesystem::path& path) override { return files.contains(path.string()); }
  std::optional<std::string> readText(const std::filesystem::path& path) override {
    auto found = texts.find(path.string());
    return found == texts.end() ? std::nullopt : std::optional(found->second);
  }
  ManagerEnvironment managerSSHAuthSock() override { return manager; }
  bool agentSetsManagerEnvironment() override { return unitSetsEnvironment; }
  std::optional<std::string> identityAgentFor(const std::filesystem::path&,
                                              const std::string& host) override {
    auto found = identityAgents.find(host);
    return found == identityAgents.end() ? std::nullopt : std::optional(found->second);
  }
  std::optional<std::string> environment(const std::string& name) override {
    auto found = variables.find(name);
    return found == variables.end() ? std::nullopt : std::optional(found->second);
  }
  KeyAvailability keys() override { return keyList; }
  bool presenceVerificationOn() override { return presence; }
  AccountPassword accountPassword() override { return password; }
  std::vector<std::string> activeBlocks(const std::filesystem::path&) override { return blocked; }
  RelayHealth relayHealth() override { return relay; }
  Date now() override { return clock; }
};

std::vector<DiagnosticCheck> run(FakeProbes& probes, size_t limit = kSocketPathLimit) {
  return runDiagnostics(probes, DiagnosticSettings{probes.home, limit});
}

const DiagnosticCheck* titled(const std::vector<DiagnosticCheck>& checks, std::string_view title) {
  for (const DiagnosticCheck& check : checks)
    if (check.title == title) return &check;
  return nullptr;
}

TEST(Diagnostics, AHealthySystemPassesEveryCheckInTheFixedOrder) {
  FakeProbes probes;
  std::vector<std::string> seen;
  auto checks = runDiagnostics(probes, {probes.home},
                               [&](const DiagnosticCheck& check) { seen.push_back(check.title); });
  std::vector<std::string> titles;
  for (const DiagnosticCheck& check : checks) {
    titles.push_back(check.title);
    EXPECT_EQ(check.level, Level::ok) << check.title << ": " << check.detail;
  }
  EXPECT_EQ(titles,
            (std::vector<std::string>{"Agent registered", "Agent answers", "Socket path",
                                      "Default agent for apps (SSH_AUTH_SOCK)", "~/.ssh/config",
                                      "Keys in Quorvane's keychain", "Remote approval relay"}));
  EXPECT_EQ(seen, titles);
  EXPECT_NE(checks[0].id, checks[1].id);
  EXPECT_EQ(checks[0].id, runDiagnostics(probes, {probes.home})[0].id) << "the same in every run";
  EXPECT_FALSE(anyProblem(checks));
  EXPECT_EQ(checks[1].detail, "2 keys offered at ~/.ssh/quorvane/agent.sock");
  EXPECT_EQ(checks[4].detail, "The one named host uses Quorvane.");
  EXPECT_EQ(checks[5].detail, "2 keys available");
}

// One system fault per case: the check it shows in, its level and its exact detail.
struct Fault {
  const char* name;
  std::function<void(FakeProbes&)> change;
  const char* title;
  Level level;
  const char* detail;
};

class DiagnosticFaults : public ::testing::TestWithParam<Fault> {};

TEST_P(DiagnosticFaults, AreReportedWithTheirLevelAndDetail) {
  FakeProbes probes;
  GetParam().change(probes);
  auto checks = run(probes);
  const DiagnosticCheck* check = titled(checks, GetParam().title);
  ASSERT_NE(check, nullptr);
  EXPECT_EQ(check->level, GetParam().level);
  EXPECT_EQ(check->detail, GetParam().detail);
  EXPECT_EQ(anyProblem(checks), GetParam().level == Level::problem);
}

const std::string kSocket = "/home/ada/.ssh/quorvane/agent.sock";

INSTANTIATE_TEST_SUITE_P(
    Checks, DiagnosticFaults,
    ::testing::Values(
        Fault{"unitDisabled", [](FakeProbes& p) { p.unit = AgentUnitState::disabled; },
              "Agent registered", Level::warning,
              "Quorvane Agent was switched off. Turn it on with quorvane agent install to use your "
              "keys."},
        Fault{"presenceOff", [](FakeProbes& p) { p.presence = false; }, "Presence verification",
              Level::warning,
              "Off: any program running as you can approve requests. Turn it on with quorvane "
              "presence on."},
        Fault{"unitMissing", [](FakeProbes& p) { p.unit = AgentUnitState::notInstalled; },
              "Agent registered", Level::warning, "Not started. Run quorvane agent install."},
        Fault{"noSystemd", [](FakeProbes& p) { p.unit = AgentUnitState::noUserManager; },
              "Agent registered", Level::warning,
              "No systemd user manager here, so nothing starts the agent at login. Run "
              "quorvane-agent yourself."},
        Fault{"lockedPassword", [](FakeProbes& p) { p.password = AccountPassword::unusable; },
              "Presence verification", Level::problem,
              "Your account has no usable password, so your presence can never be verified and "
              "nothing can be approved. Set one with passwd, or turn verification off with "
              "quorvane presence off."},
        Fault{"blocked",
              [](FakeProbes& p) {
                p.blocked = {"/usr/bin/git may not use “laptop” until 2027-01-15T08:15:00Z"};
              },
              "Blocked", Level::warning,
              "/usr/bin/git may not use “laptop” until 2027-01-15T08:15:00Z. Lift it with "
              "quorvane unblock."},
        Fault{"agentDown", [](FakeProbes& p) { p.answer = {}; }, "Agent answers", Level::problem,
              "Quorvane Agent isn't running. SSH and Git can't use your keys. Restart it with "
              "quorvane agent restart."},
        Fault{"agentOdd", [](FakeProbes& p) { p.answer.kind = AgentAnswer::Kind::unexpected; },
              "Agent answers", Level::problem, "Unexpected answer from the agent."},
        Fault{"socketGone", [](FakeProbes& p) { p.files.clear(); }, "Socket path", Level::warning,
              "~/.ssh/quorvane/agent.sock is missing. The agent recreates it within a minute "
              "after it starts."},
        Fault{"envOther", [](FakeProbes& p) { p.manager.value = "/tmp/ssh-x/agent.1"; },
              "Default agent for apps (SSH_AUTH_SOCK)", Level::warning,
              "Apps started from the Dock use /tmp/ssh-x/agent.1. The agent sets this within a "
              "minute."},
        Fault{"envUnset", [](FakeProbes& p) { p.manager.value.reset(); },
              "Default agent for apps (SSH_AUTH_SOCK)", Level::warning,
              "Apps started from the Dock use no agent. The agent sets this within a minute."},
        Fault{"envOff",
              [](FakeProbes& p) {
                p.manager.value.reset();
                p.unitSetsEnvironment = false;
              },
              "Default agent for apps (SSH_AUTH_SOCK)", Level::warning, "Turned off in Setup"},
        Fault{"envNoManager", [](FakeProbes& p) { p.manager = {}; },
              "Default agent for apps (SSH_AUTH_SOCK)", Level::warning,
              "No systemd user manager here; apps get SSH_AUTH_SOCK from your session."},
        Fault{"noConfig", [](FakeProbes& p) { p.texts.clear(); }, "~/.ssh/config", Level::warning,
              "No ~/.ssh/config. ssh uses SSH_AUTH_SOCK; set up Terminal and ssh with quorvane "
              "setup ssh to be sure."},
        Fault{"noBlock", [](FakeProbes& p) { p.texts.begin()->second = "Host a\n"; },
              "~/.ssh/config", Level::warning,
              "Terminal and ssh aren't set up for Quorvane yet. Run quorvane setup ssh."},
        Fault{"wildcardsOnly",
              [](FakeProbes& p) { p.texts.begin()->second = managedConfig("Host * !x\n"); },
              "~/.ssh/config", Level::ok, "No named hosts."},
        Fault{"someHostsElsewhere",
              [](FakeProbes& p) {
                p.texts.begin()->second =
                    managedConfig("Host github.com\nHost work *.corp\nhost=old\n");
                p.identityAgents["old"] = "/tmp/other.sock";
              },
              "~/.ssh/config", Level::warning,
              "2 of 3 hosts don't use Quorvane: work, old. That's fine if you excluded them on "
              "purpose."},
        Fault{"hostThroughVariable",
              [](FakeProbes& p) {
                p.identityAgents["github.com"] = "$SSH_AUTH_SOCK";
                p.variables["SSH_AUTH_SOCK"] = kSocket;
              },
              "~/.ssh/config", Level::ok, "The one named host uses Quorvane."},
        Fault{"keyLost",
              [](FakeProbes& p) {
                p.keyList.keys = {{"a", false}, {"b", true}, {"c", false}};
              },
              "Keys in Quorvane's keychain", Level::problem,
              "Unavailable: a, c. They can't sign; create replacements and update your "
              "services."},
        Fault{"keyListTampered",
              [](FakeProbes& p) {
                p.keyList = {"keys.json was changed", {}};
              },
              "Keys in Quorvane's keychain", Level::problem,
              "The key list can't be read: keys.json was changed"},
        Fault{"onePassword",
              [](FakeProbes& p) { p.files.insert("/home/ada/.1password/agent.sock"); }, "1Password",
              Level::ok, "1Password's SSH agent is set up. Quorvane never changes its settings."},
        Fault{"gnomeKeyring",
              [](FakeProbes& p) {
                p.variables["XDG_RUNTIME_DIR"] = "/run/user/1000";
                p.variables["SSH_AUTH_SOCK"] = "/run/user/1000/keyring/ssh";
                p.files.insert("/run/user/1000/keyring/ssh");
              },
              "GNOME Keyring", Level::ok,
              "GNOME Keyring's SSH agent is running. Quorvane never changes its settings."},
        Fault{"shellAgent",
              [](FakeProbes& p) {
                p.variables["SSH_AUTH_SOCK"] = "/tmp/ssh-X/agent.7";
                p.files.insert("/tmp/ssh-X/agent.7");
              },
              "ssh-agent", Level::warning,
              "SSH_AUTH_SOCK names another agent (/tmp/ssh-X/agent.7). ssh uses it for hosts "
              "that ~/.ssh/config doesn't send to Quorvane."},
        Fault{"relayOffline", [](FakeProbes& p) { p.relay.kind = RelayHealth::Kind::offline; },
              "Remote approval relay", Level::warning,
              "Remote approval is offline. Approve on this computer instead."},
        Fault{"relayNotConfigured", [](FakeProbes&) {}, "Remote approval relay", Level::ok,
              "Not set up; requests are approved on this computer."}),
    [](const auto& test) { return std::string(test.param.name); });

TEST(Diagnostics, OtherAgentsGetOneLineEachAndNoneWhenAbsent) {
  FakeProbes probes;
  EXPECT_EQ(run(probes).size(), 7u);
  probes.variables = {{"XDG_RUNTIME_DIR", "/run/user/1000"},
                      {"SSH_AUTH_SOCK", "/run/user/1000/gnupg/S.gpg-agent.ssh"}};
  probes.files.insert("/run/user/1000/gnupg/S.gpg-agent.ssh");
  probes.files.insert("/home/ada/.gnupg/S.gpg-agent.ssh");
  probes.files.insert("/home/ada/.1password/agent.sock");
  auto checks = run(probes);
  ASSERT_EQ(checks.size(), 9u);  // 1Password and GnuPG once, the shell's agent is GnuPG's
  EXPECT_EQ(checks[6].title, "1Password");
  EXPECT_EQ(checks[7].title, "GnuPG");
  EXPECT_EQ(checks[8].title, "Remote approval relay");
}

struct SocketPathCase {
  size_t agentLength, limit;
  Level level;
  std::string detail;
};

void PrintTo(const SocketPathCase& c, std::ostream* out) {
  *out << c.agentLength << " of " << c.limit << " bytes";
}

// Socket path lengths around the limit; the control socket is two bytes longer than the agent
// socket and must fit too.
class DiagnosticsSocketPath : public ::testing::TestWithParam<SocketPathCase> {};

TEST_P(DiagnosticsSocketPath, MustFitTheSocketAddress) {
  const SocketPathCase& c = GetParam();
  const std::string suffix = "/.ssh/quorvane/agent.sock";  // 25 bytes
  FakeProbes probes;
  probes.home = "/" + std::string(c.agentLength - suffix.size() - 1, 'h');
  probes.files = {(probes.home / ".ssh/quorvane/agent.sock").string()};
  auto checks = run(probes, c.limit);
  const DiagnosticCheck* check = titled(checks, "Socket path");
  ASSERT_NE(check, nullptr);
  EXPECT_EQ(check->level, c.level);
  EXPECT_EQ(check->detail, c.detail);
}

const char kHomeTooLong108[] = "Your home folder path is too long for a socket (108 of 107 bytes).";

INSTANTIATE_TEST_SUITE_P(
    Lengths, DiagnosticsSocketPath,
    ::testing::Values(
        SocketPathCase{103, 107, Level::ok, "~/.ssh/quorvane/agent.sock (103 of 107 bytes)"},
        SocketPathCase{104, 107, Level::ok, "~/.ssh/quorvane/agent.sock (104 of 107 bytes)"},
        SocketPathCase{105, 107, Level::ok, "~/.ssh/quorvane/agent.sock (105 of 107 bytes)"},
        SocketPathCase{106, 107, Level::problem, kHomeTooLong108},
        SocketPathCase{108, 107, Level::problem, kHomeTooLong108},
        SocketPathCase{101, 103, Level::ok, "~/.ssh/quorvane/agent.sock (101 of 103 bytes)"},
        SocketPathCase{104, 103, Level::problem,
                       "Your home folder path is too long for a socket (104 of 103 bytes)."}));

TEST(Diagnostics, SocketPathLimitIsTheSocketAddressSize) { EXPECT_EQ(kSocketPathLimit, 107u); }

struct ClockCase {
  double serverOffset;
  std::string detail;
};

void PrintTo(const ClockCase& c, std::ostream* out) { *out << c.serverOffset << " s"; }

class DiagnosticsRelayClock : public ::testing::TestWithParam<ClockCase> {};

TEST_P(DiagnosticsRelayClock, IsReportedFrom31WholeSecondsEitherWay) {
  FakeProbes probes;
  probes.clock = Date{784111777.0 - GetParam().serverOffset};  // the header's moment, shifted
  probes.relay = {RelayHealth::Kind::answered, "Sun, 06 Nov 1994 08:49:37 GMT", ""};
  auto checks = run(probes);
  const DiagnosticCheck* check = titled(checks, "Remote approval relay");
  ASSERT_NE(check, nullptr);
  EXPECT_EQ(check->detail, GetParam().detail);
  EXPECT_EQ(check->level, GetParam().detail == "Online" ? Level::ok : Level::warning);
}

INSTANTIATE_TEST_SUITE_P(
    Offsets, DiagnosticsRelayClock,
    ::testing::Values(
        ClockCase{0, "Online"}, ClockCase{30, "Online"}, ClockCase{-30.9, "Online"},
        ClockCase{31, "This computer's clock is off by 31 s. Remote approvals may fail."},
        ClockCase{-31, "This computer's clock is off by 31 s. Remote approvals may fail."},
        ClockCase{-3600.5, "This computer's clock is off by 3600 s. Remote approvals may fail."}));

}  // namespace
}  // namespace quorvane
