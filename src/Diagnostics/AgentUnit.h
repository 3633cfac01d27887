#pragma once

#include <filesystem>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/RunProgram.h"

namespace quorvane {

// The agent as a systemd user service: what starts it at login on Linux.
inline constexpr std::string_view kAgentUnitName = "com.tallowmere.quorvane.agent.service";

// The unit file that runs `agentProgram` (an absolute path). Besides running the agent it sets
// SSH_AUTH_SOCK in the user manager's environment to the agent socket, so that programs the
// manager starts (desktop sessions, other services) use the agent.
std::string agentUnitText(const std::filesystem::path& agentProgram);

// Whether a unit file's text sets SSH_AUTH_SOCK in the manager's environment.
bool unitSetsManagerEnvironment(std::string_view unitText);

// $XDG_CONFIG_HOME/systemd/user (an absolute XDG_CONFIG_HOME only), else ~/.config/systemd/user.
std::filesystem::path userUnitFolder();
std::filesystem::path agentUnitPath();

// `systemctl --user ARGUMENTS...`.
ProgramResult systemctlUser(const std::vector<std::string>& arguments);

// Whether a systemd user manager answers (it does not in most containers and without a login
// session).
bool userManagerAvailable();

}  // namespace quorvane
