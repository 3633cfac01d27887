#pragma once

#include <CLI/CLI.hpp>
#include <map>
#include <string>

#include "Base/JSONReader.h"

namespace quorvane::cli {

// Each adds one group of subcommands to the program.
void addKeyCommands(CLI::App& app);
// `keys import`, added to the keys group.
void addImportCommand(CLI::App& keys);
void addApprovalCommands(CLI::App& app);
void addLockCommands(CLI::App& app);
// `blocks` and `unblock`: the denial limiter's blocks.
void addBlockCommands(CLI::App& app);
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
// `remote relay` and `remote status`, added to the remote group.
void addRelayCommands(CLI::App& remote);

// `devices` on the computer that runs the agent: pair, list, remove, allow.
void addDevicesCommands(CLI::App& app);
// `devices pair`, added to the devices group.
void addDevicesPairCommand(CLI::App& devices);
// `approver` on an approving computer: pair, watch, pending, answer, list, unpair.
void addApproverCommands(CLI::App& app);
// `approver pair`, added to the approver group.
void addApproverPairCommand(CLI::App& approver);
// `approver watch`: shows the requests of the paired computers as they arrive and, on a terminal,
// takes the answers; with `json` (or without a terminal) it only lists them.
void watchApproverRequests(bool json);

// quorvane prompt [on|off]: whether the agent opens the desktop approval dialog by itself.
void addPromptCommands(CLI::App& app);

// The approval windows by the names the commands take ("5m" … "24h"), in seconds.
extern const std::map<std::string, double> kWindows;
// The approval text of a request, as the terminal shows it.
void showRequest(const JSON& request);
// `watch`: shows exactly the requests that wait now and takes the answers.
void watchRequests();

// Prints the blocks in force, a line each; nothing when there are none.
void showBlocks();

// Asks a yes/no question on the terminal; false without a terminal.
bool confirm(const std::string& question);

}  // namespace quorvane::cli
