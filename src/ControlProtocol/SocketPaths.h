#pragma once

#include <filesystem>

namespace quorvane {

// The agent's sockets: ~/.ssh/quorvane/agent.sock and control.sock.
std::filesystem::path agentSocketPath();
std::filesystem::path controlSocketPath();

}  // namespace quorvane
