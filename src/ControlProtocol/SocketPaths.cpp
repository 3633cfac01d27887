#include "ControlProtocol/SocketPaths.h"

#include "Platform/Paths.h"

namespace quorvane {

std::filesystem::path agentSocketPath() {
  return homeFolder() / ".ssh" / "quorvane" / "agent.sock";
}

std::filesystem::path controlSocketPath() {
  return homeFolder() / ".ssh" / "quorvane" / "control.sock";
}

}  // namespace quorvane
