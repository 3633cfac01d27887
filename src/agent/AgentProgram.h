#pragma once

#include <filesystem>
#include <string>

namespace quorvane {

struct AgentProgramOptions {
  std::filesystem::path agentSocket;    // default ~/.ssh/quorvane/agent.sock
  std::filesystem::path controlSocket;  // default ~/.ssh/quorvane/control.sock
  size_t maxConnections = 64;
};

// Runs the agent until SIGTERM or SIGINT: opens the user's keys, rules, host pins and activity
// log, listens on both sockets, reloads on SIGHUP and on the reload message. Prints the
// SSH_AUTH_SOCK line first. Returns the process's exit code; problems that stop it from starting
// are printed.
int runAgentProgram(const AgentProgramOptions& options);

}  // namespace quorvane
