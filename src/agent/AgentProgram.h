#pragma once

#include <filesystem>
#include <string>

namespace quorvane {

struct AgentProgramOptions {
  std::filesystem::path agentSocket;    // default ~/.ssh/quorvane/agent.sock
  std::filesystem::path controlSocket;  // default ~/.ssh/quorvane/control.sock
  // Connections held at once (0: what the open-file limit allows).
  size_t maxConnections = 0;
  // The folder with the PAM service file "quorvane" for presence verification. Empty: the
  // system's (/etc/pam.d). Only tests set it, to a private configuration.
  std::filesystem::path pamConfigDirectory;
  // The desktop approval dialog. Empty: quorvane-prompt beside the agent's own executable.
  std::filesystem::path promptProgram;
};

// Runs the agent until SIGTERM or SIGINT: opens the user's keys, rules, host pins and activity
// log, listens on both sockets, reloads on SIGHUP and on the reload message. Prints the
// SSH_AUTH_SOCK line first. Returns the process's exit code; problems that stop it from starting
// are printed.
int runAgentProgram(const AgentProgramOptions& options);

}  // namespace quorvane
