#pragma once

#include <optional>

#include "Diagnostics/DiagnosticProbes.h"
#include "Platform/RunProgram.h"
#include "RelayClient/RelayClient.h"

namespace quorvane {

// The probes of a Linux system: systemctl --user for the unit and the manager's environment, the
// agent socket itself, `ssh -G`, the file keychain behind the key store, the process environment,
// the relay that `quorvane remote relay` set (its health request). Asking the agent gives up
// after a few seconds.
class SystemProbes final : public DiagnosticProbes {
 public:
  AgentUnitState agentUnitState() override;
  AgentAnswer askAgentForIdentities(const std::filesystem::path& socket) override;
  bool exists(const std::filesystem::path& path) override;
  std::optional<std::string> readText(const std::filesystem::path& path) override;
  ManagerEnvironment managerSSHAuthSock() override;
  bool agentSetsManagerEnvironment() override;
  std::optional<std::string> identityAgentFor(const std::filesystem::path& config,
                                              const std::string& host) override;
  std::optional<std::string> environment(const std::string& name) override;
  KeyAvailability keys() override;
  bool presenceVerificationOn() override;
  AccountPassword accountPassword() override;
  std::vector<std::string> activeBlocks(const std::filesystem::path& controlSocket) override;
  RelayHealth relayHealth() override;
  Date now() override;

 private:
  // `systemctl --user show-environment`, asked once per run.
  const ProgramResult& showEnvironment();
  std::optional<ProgramResult> showEnvironment_;
};

// What `client`'s health request says: answered (status 200, with the Date header), or offline
// with the reason in the relay's user words.
RelayHealth relayHealthOf(const RelayClient& client);

}  // namespace quorvane
