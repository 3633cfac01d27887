#include "AgentEngine/OriginBuilder.h"

#include <algorithm>
#include <cctype>
#include <string_view>

#include "ProcessContext/KnownAgents.h"

namespace quorvane {
namespace {

// Programs that only start other programs (shells, terminal multiplexers, and wrappers that run
// their arguments): never the app the user recognises.
constexpr std::string_view kLaunchers[] = {
    "sh",      "bash",    "dash",   "zsh",    "fish",   "ksh",  "tcsh",   "csh",
    "tmux",    "screen",  "SCREEN", "sudo",   "su",     "doas", "login",  "env",
    "systemd", "init",    "sshd",   "setsid", "nohup",  "time", "nice",   "ionice",
    "timeout", "runuser", "flock",  "xargs",  "stdbuf", "chrt", "taskset"};

bool isLauncher(const ProcessInfoEntry& entry) {
  // A server names itself by its title, "tmux: server": the program is the word before the colon.
  const std::string_view name = std::string_view(entry.name).substr(0, entry.name.find(':'));
  return std::ranges::find(kLaunchers, name) != std::end(kLaunchers);
}

// The index in the chain of the process taken as the app.
size_t appIndex(const std::vector<ProcessInfoEntry>& chain, const KnownAgent* known) {
  if (known != nullptr)
    for (size_t i = 0; i < chain.size(); ++i)
      if (fits(*known, chain[i])) return i;
  for (size_t i = chain.size(); i-- > 0;)
    if (!isLauncher(chain[i])) return i;
  return 0;
}

// ssh options that take a value (ssh(1)).
constexpr std::string_view kSSHOptionsWithValue = "BbcDEeFIiJLlmOoPpQRSWw";

}  // namespace

std::optional<GitHint> gitHintFromArguments(const std::vector<std::string>& arguments) {
  auto any = [&](std::string_view marker) {
    return std::ranges::any_of(arguments,
                               [&](const std::string& a) { return a.find(marker) != a.npos; });
  };
  if (any("git-receive-pack")) return GitHint::push;
  if (any("git-upload-pack") || any("git-upload-archive")) return GitHint::fetch;
  return std::nullopt;
}

std::optional<std::string> sshDestinationHost(const std::vector<std::string>& sshArguments) {
  std::string port;
  std::optional<std::string> host;
  for (size_t i = 1; i < sshArguments.size() && !host; ++i) {
    std::string_view argument = sshArguments[i];
    if (argument == "--") {
      if (i + 1 < sshArguments.size()) host = sshArguments[i + 1];
      break;
    }
    if (argument.size() > 1 && argument.front() == '-') {
      // A cluster of flags; the first flag that takes a value takes the rest or the next argument.
      for (size_t j = 1; j < argument.size(); ++j) {
        if (kSSHOptionsWithValue.find(argument[j]) == std::string_view::npos) continue;
        std::string value(argument.substr(j + 1));
        if (value.empty() && i + 1 < sshArguments.size()) value = sshArguments[++i];
        if (argument[j] == 'p') port = value;
        if (argument[j] == 'o' && (value.starts_with("Port=") || value.starts_with("port=")))
          port = value.substr(5);
        break;
      }
      continue;
    }
    host = std::string(argument);
  }
  if (!host) return std::nullopt;

  std::string_view name = *host;
  if (name.starts_with("ssh://")) {
    name.remove_prefix(6);
    name = name.substr(0, name.find('/'));
    if (size_t at = name.rfind('@'); at != std::string_view::npos) name.remove_prefix(at + 1);
    size_t colon = name.starts_with('[') ? name.find("]:") : name.rfind(':');
    if (colon != std::string_view::npos) {
      port = std::string(name.substr(colon + (name.starts_with('[') ? 2 : 1)));
      name = name.substr(0, colon + (name.starts_with('[') ? 1 : 0));
    }
  } else if (size_t at = name.rfind('@'); at != std::string_view::npos) {
    name.remove_prefix(at + 1);
  }
  if (name.starts_with('[') && name.ends_with(']')) name = name.substr(1, name.size() - 2);
  if (name.empty()) return std::nullopt;
  std::string lower(name);
  for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  if (!port.empty() && port != "22") return "[" + lower + "]:" + port;
  return lower;
}

std::optional<std::string> claimedHostOf(const PeerOrigin& peer) {
  for (const ProcessInfoEntry& entry : peer.chain)
    if (entry.name == "ssh") return sshDestinationHost(entry.arguments);
  return std::nullopt;
}

RequestOrigin buildRequestOrigin(const PeerOrigin& peer) {
  RequestOrigin origin;
  origin.appName = "unknown";
  const auto& chain = peer.chain;
  if (chain.empty()) return origin;

  const KnownAgent* known = match(chain);
  const size_t app = appIndex(chain, known);
  const ProcessInfoEntry& entry = chain[app];
  origin.appName = known != nullptr ? known->displayName : entry.name;
  if (origin.appName.empty()) origin.appName = "unknown";
  origin.appIdentifier = entry.signingIdentifier;
  if (entry.teamIdentifier)
    origin.appTeamID = entry.teamIdentifier;
  else if (entry.appleSigned.value_or(false))
    origin.appTeamID = "apple";
  for (size_t i = 0; i <= app; ++i) {
    origin.chainPaths.push_back(chain[i].path);
    if (!chain[i].signatureValid.value_or(false)) origin.unsignedPrograms.push_back(chain[i].path);
  }
  origin.workingDirectory = chain.front().workingDirectory;
  for (const ProcessInfoEntry& process : chain) {
    if (process.name != "ssh") continue;
    origin.gitHint = gitHintFromArguments(process.arguments);
    break;
  }
  return origin;
}

}  // namespace quorvane
