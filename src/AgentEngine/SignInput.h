#pragma once

#include <optional>
#include <string>

#include "Base/Bytes.h"
#include "Policy/RequestOrigin.h"
#include "SSHWire/ConnectionBindings.h"
#include "SSHWire/SignFlags.h"
#include "SSHWire/SignPurpose.h"

namespace quorvane {

// One sign request as a connection hands it to the agent.
struct SignInput {
  Bytes keyBlob;
  Bytes data;
  SignFlags flags;
  SignPurpose purpose;
  // What the connection's session bindings say about a login's host; ignored for other purposes.
  ConnectionBindings::HostVerdict verdict{ConnectionBindings::HostVerdict::Unbound{}};
  RequestOrigin origin;
  // The host that the client's own command line names, when it can be seen.
  std::optional<std::string> claimedHost;
};

}  // namespace quorvane
