#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "Base/Date.h"
#include "Platform/AccountPassword.h"

namespace quorvane {

// How the agent's systemd user unit stands.
enum class AgentUnitState {
  enabled,        // enabled (or linked, or enabled for this boot): started at login
  disabled,       // installed but disabled or masked: the user switched it off
  notInstalled,   // systemd knows no such unit
  noUserManager,  // there is no systemd user manager to ask (containers, other init systems)
};

// What the agent socket answered to a request for identities.
struct AgentAnswer {
  enum class Kind { noConnection, identities, unexpected };
  Kind kind = Kind::noConnection;
  size_t keyCount = 0;  // for identities
};

// SSH_AUTH_SOCK as the user's service manager hands it to programs it starts.
struct ManagerEnvironment {
  bool reachable = false;            // false: no user manager answered
  std::optional<std::string> value;  // nothing: not set
};

// The keys of the key store and whether each one's secret can be read.
struct KeyAvailability {
  struct Key {
    std::string name;
    bool readable = false;
  };
  std::optional<std::string> failure;  // the key list itself could not be read: why
  std::vector<Key> keys;
};

// The relay's health answer.
struct RelayHealth {
  enum class Kind { notConfigured, offline, answered };
  Kind kind = Kind::notConfigured;
  std::optional<std::string> dateHeader;  // for answered (status 200): the "Date" header
  std::string problem;  // for offline: what went wrong, for people ("the relay answered with ...")
};

// Everything the diagnostics read from the system, behind one interface so that the order,
// levels and texts of the checks can be tested without a systemd, an agent or a relay. Probes
// only read; none may change anything. A probe that cannot run says so through its result.
class DiagnosticProbes {
 public:
  virtual ~DiagnosticProbes() = default;

  virtual AgentUnitState agentUnitState() = 0;
  virtual AgentAnswer askAgentForIdentities(const std::filesystem::path& socket) = 0;
  // Whether any file (a socket too) exists at `path`.
  virtual bool exists(const std::filesystem::path& path) = 0;
  // A text file's contents; nothing when there is no file or it cannot be read.
  virtual std::optional<std::string> readText(const std::filesystem::path& path) = 0;
  virtual ManagerEnvironment managerSSHAuthSock() = 0;
  // Whether the installed agent unit sets SSH_AUTH_SOCK for the programs the manager starts.
  virtual bool agentSetsManagerEnvironment() = 0;
  // The "identityagent" that `ssh -F CONFIG -G HOST` reports; nothing when none is set or ssh
  // fails.
  virtual std::optional<std::string> identityAgentFor(const std::filesystem::path& config,
                                                      const std::string& host) = 0;
  // A variable of this process's environment; nothing when unset.
  virtual std::optional<std::string> environment(const std::string& name) = 0;
  virtual KeyAvailability keys() = 0;
  // Whether approvals need the user's verified presence (the setting `quorvane presence` changes).
  virtual bool presenceVerificationOn() = 0;
  // Whether the user's account has a password that PAM's password check could accept.
  virtual AccountPassword accountPassword() = 0;
  // The running agent's blocks, a sentence each; none when no agent answers on `controlSocket`.
  virtual std::vector<std::string> activeBlocks(const std::filesystem::path& controlSocket) = 0;
  // Asks the configured relay's health request (8 s at most).
  virtual RelayHealth relayHealth() = 0;
  virtual Date now() = 0;
};

}  // namespace quorvane
