#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace quorvane::cli {

// Each adds one group of subcommands to the program.
void addKeyCommands(CLI::App& app);
// `keys import`, added to the keys group.
void addImportCommand(CLI::App& keys);
void addApprovalCommands(CLI::App& app);
void addLockCommands(CLI::App& app);
void addRuleCommands(CLI::App& app);
void addLogCommands(CLI::App& app);
void addSetupCommands(CLI::App& app);
// `setup git`, added to the setup group.
void addGitSetupCommand(CLI::App& setup);
// `doctor`, and `agent install|uninstall|status` for the systemd user service.
void addDoctorCommands(CLI::App& app);
// `presence` (on, off) and `remote` (pause, resume).
void addPresenceCommands(CLI::App& app);
void addRemoteCommands(CLI::App& app);

// Asks a yes/no question on the terminal; false without a terminal.
bool confirm(const std::string& question);

}  // namespace quorvane::cli
