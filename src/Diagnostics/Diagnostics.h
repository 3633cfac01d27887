#pragma once

#include <sys/un.h>

#include <filesystem>
#include <functional>
#include <string_view>
#include <vector>

#include "Diagnostics/DiagnosticCheck.h"
#include "Diagnostics/DiagnosticProbes.h"

namespace quorvane {

// Shown above the list.
inline constexpr std::string_view kDiagnosticsIntro =
    "Checks the agent, the socket, ~/.ssh/config, Quorvane's keychain and the relay. Nothing is "
    "changed.";

// The longest socket path this platform can bind: a socket address's path field less its
// terminating zero (107 bytes on Linux).
inline constexpr size_t kSocketPathLimit = sizeof(sockaddr_un{}.sun_path) - 1;

struct DiagnosticSettings {
  std::filesystem::path home;  // the user's home folder; the other paths are under it
  size_t socketPathLimit = kSocketPathLimit;

  std::filesystem::path agentSocket() const;    // ~/.ssh/quorvane/agent.sock
  std::filesystem::path controlSocket() const;  // ~/.ssh/quorvane/control.sock
  std::filesystem::path sshConfig() const;      // ~/.ssh/config
};

// Runs the checks in their fixed order (agent registration, agent answers, socket path, default
// agent for apps, ~/.ssh/config, keys in the keychain, other SSH agents, the relay) and returns
// the list; `onCheck`, when given, sees each check as soon as it is made. Never throws for what
// it finds: a check that cannot run reports that as its own result.
std::vector<DiagnosticCheck> runDiagnostics(
    DiagnosticProbes& probes, const DiagnosticSettings& settings,
    const std::function<void(const DiagnosticCheck&)>& onCheck = {});

// The relay check on its own ("Remote approval relay"): offline, or online with this computer's
// clock compared with the relay's Date header at `now` (31 whole seconds apart or more either way
// is reported). `remote status` shows the same line.
DiagnosticCheck checkRelay(const RelayHealth& health, Date now);

// Whether any check in `checks` is a problem (the command then exits with failure).
bool anyProblem(const std::vector<DiagnosticCheck>& checks);

}  // namespace quorvane
