#pragma once

#include <string_view>

#include "SSHWire/AgentResponse.h"

namespace quorvane {

// Extension names the agent recognises.
inline constexpr std::string_view kSessionBindExtension = "session-bind@openssh.com";
inline constexpr std::string_view kQueryExtension = "query";

// The answer to the "query" extension: the name "query", then every extension the agent serves.
AgentResponse queryExtensionResponse();

}  // namespace quorvane
