#pragma once

#include <optional>
#include <string>

#include "AgentEngine/Agent.h"
#include "AgentEngine/Announcement.h"
#include "AgentEngine/ClientWatch.h"
#include "SSHWire/AgentRequest.h"
#include "SSHWire/AgentResponse.h"
#include "SSHWire/ConnectionBindings.h"

namespace quorvane {

// What belongs to one client connection: the program behind it, the host it claims, its session
// bindings. Requests of one connection are handled one after the other.
class AgentConnection {
 public:
  AgentConnection(Agent& agent, AnnouncementBoard& announcements, Clock& clock,
                  RequestOrigin origin, std::optional<std::string> claimedHost,
                  ProcessInstance peer);

  // One message body in, one answer out: the body is parsed once as an agent request and
  // dispatched; announcements are recorded and answered with success. Never throws for bad input.
  AgentResponse handle(ByteView body, ClientWatch& watch);

  const RequestOrigin& origin() const { return origin_; }

 private:
  AgentResponse dispatch(const AgentRequest& request, ClientWatch& watch);
  AgentResponse handleExtension(const std::string& name, ByteView contents);

  Agent& agent_;
  AnnouncementBoard& announcements_;
  Clock& clock_;
  RequestOrigin origin_;
  std::optional<std::string> claimedHost_;
  ProcessInstance peer_;
  ConnectionBindings bindings_;
};

}  // namespace quorvane
