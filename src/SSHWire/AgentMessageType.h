#pragma once

#include <cstdint>

namespace quorvane {

// The one-byte message numbers of the SSH agent protocol that this agent speaks
// (draft-miller-ssh-agent). Any other number from a client is answered with failure.
enum class AgentMessageType : uint8_t {
  failure = 5,             // agent to client
  success = 6,             // agent to client
  requestIdentities = 11,  // client to agent
  identitiesAnswer = 12,   // agent to client
  signRequest = 13,        // client to agent
  signResponse = 14,       // agent to client
  lock = 22,               // client to agent
  unlock = 23,             // client to agent
  extension = 27,          // client to agent
  extensionFailure = 28,   // agent to client
  extensionResponse = 29,  // agent to client
};

}  // namespace quorvane
