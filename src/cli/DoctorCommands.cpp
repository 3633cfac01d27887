#include <unistd.h>

#include <algorithm>
#include <iostream>

#include "Base/Bytes.h"
#include "Diagnostics/AgentUnit.h"
#include "Diagnostics/Diagnostics.h"
#include "Diagnostics/SystemProbes.h"
#include "Platform/AtomicFile.h"
#include "Platform/Paths.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"

namespace quorvane::cli {
namespace {

struct DoctorOptions {
  bool json = false;
  std::string agentProgram;
};
DoctorOptions options;

void doctor() {
  SystemProbes probes;
  DiagnosticSettings settings{homeFolder()};
  if (!options.json) std::cout << kDiagnosticsIntro << "\n\n";
  auto show = [](const DiagnosticCheck& check) {
    std::string level(rawValue(check.level));
    std::cout << level << std::string(9 - level.size(), ' ') << check.title << "\n         "
              << check.detail << "\n"
              << std::flush;
  };
  std::function<void(const DiagnosticCheck&)> onCheck;
  if (!options.json) onCheck = show;
  std::vector<DiagnosticCheck> checks = runDiagnostics(probes, settings, onCheck);
  if (options.json) {
    JSON array = JSON::array();
    for (const DiagnosticCheck& check : checks) array.push_back(toJSON(check));
    printJSON(array);
  }
  size_t problems =
      static_cast<size_t>(std::ranges::count_if(checks, [](const DiagnosticCheck& check) {
        return check.level == DiagnosticCheck::Level::problem;
      }));
  if (problems > 0)
    throw CommandFailure(std::to_string(problems) + (problems == 1 ? " check is" : " checks are") +
                         " a problem");
}

// The agent program that the unit starts: --program, else quorvane-agent beside this program,
// else the one in PATH.
std::filesystem::path agentProgram() {
  if (!options.agentProgram.empty()) return std::filesystem::absolute(options.agentProgram);
  std::error_code error;
  auto self = std::filesystem::read_symlink("/proc/self/exe", error);
  if (!error && std::filesystem::exists(self.parent_path() / "quorvane-agent"))
    return self.parent_path() / "quorvane-agent";
  if (const char* path = std::getenv("PATH")) {
    std::string_view folders(path);
    while (!folders.empty()) {
      std::string_view folder = folders.substr(0, folders.find(':'));
      auto candidate = std::filesystem::path(folder) / "quorvane-agent";
      if (!folder.empty() && folder.front() == '/' && ::access(candidate.c_str(), X_OK) == 0)
        return candidate;
      folders.remove_prefix(std::min(folders.size(), folder.size() + 1));
    }
  }
  throw CommandFailure("quorvane-agent was not found; name it with --program");
}

const char* kNoUserManager =
    "systemd --user is not available here (no user manager answers), so the agent can't run as "
    "a service. Start quorvane-agent yourself, for example from your session's startup programs.";

void systemctlOrFail(const std::vector<std::string>& arguments) {
  ProgramResult result = systemctlUser(arguments);
  if (result.exitCode != 0) {
    std::string command = "systemctl --user";
    for (const std::string& argument : arguments) command += " " + argument;
    throw CommandFailure(command + " failed");
  }
}

void install() {
  if (!userManagerAvailable()) throw CommandFailure(kNoUserManager);
  std::filesystem::path program = agentProgram();
  std::filesystem::path unit = agentUnitPath();
  createFolders(unit.parent_path(), 0700);
  std::string text = agentUnitText(program);
  writeFileAtomically(unit, bytesOf(text), 0644);
  systemctlOrFail({"daemon-reload"});
  systemctlOrFail({"enable", "--now", std::string(kAgentUnitName)});
  std::cout << "Installed " << unit.string() << " (runs " << program.string()
            << "); the agent runs now and starts at every login.\n";
}

void uninstall() {
  std::filesystem::path unit = agentUnitPath();
  bool manager = userManagerAvailable();
  if (manager) systemctlUser({"disable", "--now", std::string(kAgentUnitName)});
  bool removed = std::filesystem::remove(unit);
  if (manager) systemctlUser({"daemon-reload"});
  if (!manager) {
    std::cout << (removed ? "Removed " + unit.string() + ". "
                          : std::string("No unit was installed. "))
              << "There is no systemd user manager here to stop the agent; stop quorvane-agent "
                 "yourself if it runs.\n";
    return;
  }
  std::cout << (removed ? "Stopped the agent and removed " + unit.string() + ".\n"
                        : "No unit was installed; the agent service is stopped.\n");
}

void restart() {
  if (!userManagerAvailable()) throw CommandFailure(kNoUserManager);
  if (!std::filesystem::exists(agentUnitPath()))
    throw CommandFailure("the agent service is not installed; run quorvane agent install");
  systemctlOrFail({"restart", std::string(kAgentUnitName)});
  std::cout << "Restarted the agent.\n";
}

void status() {
  std::filesystem::path unit = agentUnitPath();
  bool installed = std::filesystem::exists(unit);
  bool manager = userManagerAvailable();
  auto firstLine = [](const ProgramResult& result) {
    return result.output.substr(0, result.output.find('\n'));
  };
  std::string enabled =
      manager ? firstLine(systemctlUser({"is-enabled", std::string(kAgentUnitName)})) : "";
  std::string active =
      manager ? firstLine(systemctlUser({"is-active", std::string(kAgentUnitName)})) : "";
  if (options.json)
    return printJSON({{"unit", unit.string()},
                      {"installed", installed},
                      {"userManager", manager},
                      {"enabled", enabled},
                      {"active", active}});
  std::cout << kAgentUnitName << ": "
            << (installed ? "installed at " + unit.string() : "not installed") << "\n";
  if (!manager) {
    std::cout << kNoUserManager << "\n";
    return;
  }
  std::cout << "  enabled: " << (enabled.empty() ? "unknown" : enabled) << "\n"
            << "  active:  " << (active.empty() ? "unknown" : active) << "\n";
}

}  // namespace

void addDoctorCommands(CLI::App& app) {
  CLI::App* doctorCommand = app.add_subcommand(
      "doctor",
      "check the agent, the socket, ~/.ssh/config, the keys and the relay; changes nothing");
  addJSONFlag(doctorCommand, options.json);
  doctorCommand->callback(doctor);

  CLI::App* agent = app.add_subcommand("agent", "run the agent as a systemd user service");
  agent->require_subcommand(1);
  CLI::App* installCommand = agent->add_subcommand(
      "install", "install " + std::string(kAgentUnitName) + ", enable it and start the agent");
  installCommand->add_option("--program", options.agentProgram,
                             "the quorvane-agent to run (default: the one beside quorvane)");
  installCommand->callback(install);
  agent->add_subcommand("uninstall", "stop the agent service and remove its unit")
      ->callback(uninstall);
  agent->add_subcommand("restart", "stop the agent service and start it again")->callback(restart);
  CLI::App* statusCommand =
      agent->add_subcommand("status", "whether the service is installed, enabled and running");
  addJSONFlag(statusCommand, options.json);
  statusCommand->callback(status);
}

}  // namespace quorvane::cli
