#include "Diagnostics/Diagnostics.h"

#include <algorithm>
#include <cmath>
#include <map>

#include "Base/Counted.h"
#include "ConfigKit/SSHConfigEditor.h"
#include "Crypto/Hash.h"
#include "Diagnostics/ProbeParsing.h"

namespace quorvane {
namespace {

using Level = DiagnosticCheck::Level;
using Checks = std::vector<DiagnosticCheck>;

// One step of the list: zero or more checks (most steps make exactly one).
using DiagnosticStep = Checks (*)(DiagnosticProbes&, const DiagnosticSettings&);

Checks one(std::string title, Level level, std::string detail) {
  return {DiagnosticCheck{UUID{}, std::move(title), level, std::move(detail)}};
}

// The same identifier for the same check in every run, so that scripts can follow a check: made
// from its title and how many checks of that title came before it (a name-based, version 8 UUID).
UUID checkID(const std::string& title, int occurrence) {
  const Bytes hash = crypto::sha256(
      bytesOf("quorvane doctor check\n" + title + "\n" + std::to_string(occurrence)));
  UUID id;
  std::copy_n(hash.begin(), id.bytes.size(), id.bytes.begin());
  id.bytes[6] = static_cast<uint8_t>((id.bytes[6] & 0x0f) | 0x80);
  id.bytes[8] = static_cast<uint8_t>((id.bytes[8] & 0x3f) | 0x80);
  return id;
}

std::string joined(const std::vector<std::string>& names) {
  std::string text;
  for (const std::string& name : names) text += (text.empty() ? "" : ", ") + name;
  return text;
}

Checks agentRegistration(DiagnosticProbes& probes, const DiagnosticSettings&) {
  constexpr const char* kTitle = "Agent registered";
  switch (probes.agentUnitState()) {
    case AgentUnitState::enabled:
      return one(kTitle, Level::ok, "Starts at login as com.tallowmere.quorvane.agent.service");
    case AgentUnitState::disabled:
      return one(kTitle, Level::warning,
                 "Quorvane Agent was switched off. Turn it on with quorvane agent install to use "
                 "your keys.");
    case AgentUnitState::notInstalled:
      return one(kTitle, Level::warning, "Not started. Run quorvane agent install.");
    case AgentUnitState::noUserManager: break;
  }
  return one(kTitle, Level::warning,
             "No systemd user manager here, so nothing starts the agent at login. Run "
             "quorvane-agent yourself.");
}

Checks agentAnswers(DiagnosticProbes& probes, const DiagnosticSettings& settings) {
  constexpr const char* kTitle = "Agent answers";
  AgentAnswer answer = probes.askAgentForIdentities(settings.agentSocket());
  switch (answer.kind) {
    case AgentAnswer::Kind::identities:
      return one(
          kTitle, Level::ok,
          counted(answer.keyCount, "key", "keys") + " offered at ~/.ssh/quorvane/agent.sock");
    case AgentAnswer::Kind::unexpected:
      return one(kTitle, Level::problem, "Unexpected answer from the agent.");
    case AgentAnswer::Kind::noConnection: break;
  }
  return one(kTitle, Level::problem,
             "Quorvane Agent isn't running. SSH and Git can't use your keys. Restart it with "
             "quorvane agent restart.");
}

// Both sockets must fit: the agent cannot start when either cannot be bound.
Checks socketPath(DiagnosticProbes& probes, const DiagnosticSettings& settings) {
  constexpr const char* kTitle = "Socket path";
  const std::string limit = std::to_string(settings.socketPathLimit);
  size_t agentLength = settings.agentSocket().string().size();
  for (size_t length : {agentLength, settings.controlSocket().string().size()})
    if (length > settings.socketPathLimit)
      return one(kTitle, Level::problem,
                 "Your home folder path is too long for a socket (" + std::to_string(length) +
                     " of " + limit + " bytes).");
  if (!probes.exists(settings.agentSocket()))
    return one(kTitle, Level::warning,
               "~/.ssh/quorvane/agent.sock is missing. The agent recreates it within a minute "
               "after it starts.");
  return one(
      kTitle, Level::ok,
      "~/.ssh/quorvane/agent.sock (" + std::to_string(agentLength) + " of " + limit + " bytes)");
}

Checks defaultAgentForApps(DiagnosticProbes& probes, const DiagnosticSettings& settings) {
  constexpr const char* kTitle = "Default agent for apps (SSH_AUTH_SOCK)";
  ManagerEnvironment environment = probes.managerSSHAuthSock();
  if (!environment.reachable)
    return one(kTitle, Level::warning,
               "No systemd user manager here; apps get SSH_AUTH_SOCK from your session.");
  if (environment.value == settings.agentSocket().string())
    return one(kTitle, Level::ok, "Apps started by systemd use Quorvane.");
  if (!probes.agentSetsManagerEnvironment())
    return one(kTitle, Level::warning, "Turned off in Setup");
  std::string current = environment.value.value_or("");
  return one(kTitle, Level::warning,
             "Apps started from the Dock use " + (current.empty() ? "no agent" : current) +
                 ". The agent sets this within a minute.");
}

// An IdentityAgent of "SSH_AUTH_SOCK" or "$NAME" / "${NAME}" names an environment variable.
std::optional<std::string> resolveAgentValue(DiagnosticProbes& probes, const std::string& value) {
  if (value == "SSH_AUTH_SOCK") return probes.environment(value);
  if (value.size() > 1 && value.front() == '$') {
    std::string name = value.substr(1);
    if (name.size() > 2 && name.front() == '{' && name.back() == '}')
      name = name.substr(1, name.size() - 2);
    return probes.environment(name);
  }
  return value;
}

Checks sshConfiguration(DiagnosticProbes& probes, const DiagnosticSettings& settings) {
  constexpr const char* kTitle = "~/.ssh/config";
  std::optional<std::string> config = probes.readText(settings.sshConfig());
  if (!config)
    return one(kTitle, Level::warning,
               "No ~/.ssh/config. ssh uses SSH_AUTH_SOCK; set up Terminal and ssh with quorvane "
               "setup ssh to be sure.");
  if (!SSHConfigEditor::hasManagedBlock(*config))
    return one(kTitle, Level::warning,
               "Terminal and ssh aren't set up for Quorvane yet. Run quorvane setup ssh.");
  std::vector<std::string> hosts = namedHosts(*config);
  if (hosts.empty()) return one(kTitle, Level::ok, "No named hosts.");
  std::vector<std::string> others;
  for (const std::string& host : hosts) {
    std::optional<std::string> agent = probes.identityAgentFor(settings.sshConfig(), host);
    if (!agent || resolveAgentValue(probes, *agent) != settings.agentSocket().string())
      others.push_back(host);
  }
  const std::string total = std::to_string(hosts.size());
  if (others.empty() && hosts.size() == 1)
    return one(kTitle, Level::ok, "The one named host uses Quorvane.");
  if (others.empty()) return one(kTitle, Level::ok, "All " + total + " hosts use Quorvane.");
  return one(kTitle, Level::warning,
             std::to_string(others.size()) + " of " + total + " hosts don't use Quorvane: " +
                 joined(others) + ". That's fine if you excluded them on purpose.");
}

Checks keychainKeys(DiagnosticProbes& probes, const DiagnosticSettings&) {
  constexpr const char* kTitle = "Keys in Quorvane's keychain";
  KeyAvailability availability = probes.keys();
  if (availability.failure)
    return one(kTitle, Level::problem, "The key list can't be read: " + *availability.failure);
  std::vector<std::string> unavailable;
  for (const KeyAvailability::Key& key : availability.keys)
    if (!key.readable) unavailable.push_back(key.name);
  if (!unavailable.empty())
    return one(kTitle, Level::problem,
               "Unavailable: " + joined(unavailable) +
                   ". They can't sign; create replacements and update your services.");
  return one(kTitle, Level::ok,
             counted(static_cast<int64_t>(availability.keys.size()), "key", "keys") + " available");
}

// Other SSH agents that may answer for some hosts. Found ones are reported for information: a
// host the user excluded keeps using them.
struct OtherAgent {
  const char* title;
  std::filesystem::path path;
  const char* detail;
};

Checks otherAgents(DiagnosticProbes& probes, const DiagnosticSettings& settings) {
  std::vector<OtherAgent> candidates = {
      {"1Password", settings.home / ".1password" / "agent.sock",
       "1Password's SSH agent is set up. Quorvane never changes its settings."},
      {"GnuPG", settings.home / ".gnupg" / "S.gpg-agent.ssh",
       "gpg-agent offers SSH keys. Quorvane never changes its settings."},
  };
  if (auto runtime = probes.environment("XDG_RUNTIME_DIR"); runtime && !runtime->empty()) {
    std::filesystem::path folder(*runtime);
    candidates.push_back({"GNOME Keyring", folder / "keyring" / "ssh",
                          "GNOME Keyring's SSH agent is running. Quorvane never changes its "
                          "settings."});
    candidates.push_back({"GnuPG", folder / "gnupg" / "S.gpg-agent.ssh",
                          "gpg-agent offers SSH keys. Quorvane never changes its settings."});
  }
  Checks found;
  std::vector<std::string> foundPaths;
  for (const OtherAgent& agent : candidates) {
    if (!probes.exists(agent.path)) continue;
    foundPaths.push_back(agent.path.string());
    bool sameTitle = std::ranges::any_of(
        found, [&](const DiagnosticCheck& check) { return check.title == agent.title; });
    if (!sameTitle) found.push_back(one(agent.title, Level::ok, agent.detail).front());
  }
  // The shell's own agent: SSH_AUTH_SOCK naming a socket that is neither ours nor one above.
  std::optional<std::string> shellAgent = probes.environment("SSH_AUTH_SOCK");
  if (shellAgent && !shellAgent->empty() && *shellAgent != settings.agentSocket().string() &&
      std::ranges::find(foundPaths, *shellAgent) == foundPaths.end() && probes.exists(*shellAgent))
    found.push_back(one("ssh-agent", Level::warning,
                        "SSH_AUTH_SOCK names another agent (" + *shellAgent +
                            "). ssh uses it for hosts that ~/.ssh/config doesn't send to Quorvane.")
                        .front());
  return found;
}

// Shown only when verification is off: then any program running as the user can approve.
Checks presenceVerification(DiagnosticProbes& probes, const DiagnosticSettings&) {
  if (probes.presenceVerificationOn() && probes.accountPassword() == AccountPassword::unusable)
    return one("Presence verification", Level::problem,
               "Your account has no usable password, so your presence can never be verified and "
               "nothing can be approved. Set one with passwd, or turn verification off with "
               "quorvane presence off.");
  if (probes.presenceVerificationOn()) return {};
  return one("Presence verification", Level::warning,
             "Off: any program running as you can approve requests. Turn it on with quorvane "
             "presence on.");
}

// Blocks after denials or unanswered requests, which otherwise show only as silent refusals.
Checks blocks(DiagnosticProbes& probes, const DiagnosticSettings& settings) {
  Checks checks;
  for (const std::string& text : probes.activeBlocks(settings.controlSocket()))
    for (DiagnosticCheck& check :
         one("Blocked", Level::warning, text + ". Lift it with quorvane unblock."))
      checks.push_back(std::move(check));
  return checks;
}

// A clock difference of this many whole seconds makes remote approvals fail.
constexpr double kRelayClockTolerance = 31;

Checks relay(DiagnosticProbes& probes, const DiagnosticSettings&) {
  // The clock is read after the answer arrived, to compare it with the relay's Date header.
  RelayHealth health = probes.relayHealth();
  return {checkRelay(health, probes.now())};
}

// The checks in the order they run: local ones first, the relay (the network) last.
// A new check is one more step here, at its place in the order.
constexpr DiagnosticStep kSteps[] = {
    agentRegistration,     // "Agent registered"
    agentAnswers,          // "Agent answers"
    socketPath,            // "Socket path"
    defaultAgentForApps,   // "Default agent for apps (SSH_AUTH_SOCK)"
    sshConfiguration,      // "~/.ssh/config"
    keychainKeys,          // "Keys in Quorvane's keychain"
    presenceVerification,  // "Presence verification", only when it is off
    blocks,                // "Blocked", one line per block in force
    otherAgents,           // one line per other SSH agent found
    relay,                 // "Remote approval relay"
};

}  // namespace

std::filesystem::path DiagnosticSettings::agentSocket() const {
  return home / ".ssh" / "quorvane" / "agent.sock";
}
std::filesystem::path DiagnosticSettings::controlSocket() const {
  return home / ".ssh" / "quorvane" / "control.sock";
}
std::filesystem::path DiagnosticSettings::sshConfig() const { return home / ".ssh" / "config"; }

std::vector<DiagnosticCheck> runDiagnostics(
    DiagnosticProbes& probes, const DiagnosticSettings& settings,
    const std::function<void(const DiagnosticCheck&)>& onCheck) {
  Checks checks;
  std::map<std::string, int> seen;
  for (DiagnosticStep step : kSteps) {
    for (DiagnosticCheck& check : step(probes, settings)) {
      check.id = checkID(check.title, seen[check.title]++);
      if (onCheck) onCheck(check);
      checks.push_back(std::move(check));
    }
  }
  return checks;
}

DiagnosticCheck checkRelay(const RelayHealth& health, Date now) {
  constexpr const char* kTitle = "Remote approval relay";
  if (health.kind == RelayHealth::Kind::notConfigured)
    return one(kTitle, Level::ok, "Not set up; requests are approved on this computer.").front();
  if (health.kind == RelayHealth::Kind::offline)
    return one(kTitle, Level::warning,
               "Remote approval is offline. Approve on this computer instead.")
        .front();
  if (auto serverDate = health.dateHeader ? parseHTTPDate(*health.dateHeader) : std::nullopt) {
    double seconds = std::trunc(std::fabs(now.secondsSince(*serverDate)));
    if (seconds >= kRelayClockTolerance)
      return one(kTitle, Level::warning,
                 "This computer's clock is off by " +
                     std::to_string(static_cast<long long>(seconds)) +
                     " s. Remote approvals may fail.")
          .front();
  }
  return one(kTitle, Level::ok, "Online").front();
}

bool anyProblem(const std::vector<DiagnosticCheck>& checks) {
  return std::ranges::any_of(
      checks, [](const DiagnosticCheck& check) { return check.level == Level::problem; });
}

}  // namespace quorvane
