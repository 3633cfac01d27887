#include "Diagnostics/AgentUnit.h"

#include <cstdlib>

#include "Platform/Paths.h"

namespace quorvane {

namespace {

constexpr std::string_view kSetEnvironment = "set-environment SSH_AUTH_SOCK=";

}  // namespace

std::string agentUnitText(const std::filesystem::path& agentProgram) {
  return "[Unit]\n"
         "Description=Quorvane SSH agent\n"
         "\n"
         "[Service]\n"
         "Type=simple\n"
         "ExecStart=" +
         agentProgram.string() + "\n" + "ExecStartPost=/usr/bin/systemctl --user " +
         std::string(kSetEnvironment) +
         "%h/.ssh/quorvane/agent.sock\n"
         "Restart=on-failure\n"
         "RestartSec=2\n"
         "\n"
         "[Install]\n"
         "WantedBy=default.target\n";
}

bool unitSetsManagerEnvironment(std::string_view unitText) {
  return unitText.find(kSetEnvironment) != std::string_view::npos;
}

std::filesystem::path userUnitFolder() {
  const char* config = std::getenv("XDG_CONFIG_HOME");
  if (config != nullptr && config[0] == '/')
    return std::filesystem::path(config) / "systemd" / "user";
  return homeFolder() / ".config" / "systemd" / "user";
}

std::filesystem::path agentUnitPath() { return userUnitFolder() / std::string(kAgentUnitName); }

ProgramResult systemctlUser(const std::vector<std::string>& arguments) {
  std::vector<std::string> command = {"systemctl", "--user"};
  command.insert(command.end(), arguments.begin(), arguments.end());
  return runProgram(command, std::chrono::seconds(30));
}

bool userManagerAvailable() { return systemctlUser({"show-environment"}).exitCode == 0; }

}  // namespace quorvane
