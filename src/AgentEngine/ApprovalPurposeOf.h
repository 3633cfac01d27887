#pragma once

#include "AgentEngine/HostNameStatus.h"
#include "ApprovalProto/ApprovalPurpose.h"
#include "Policy/RequestPurpose.h"

namespace quorvane {

// What a paired device is shown of a request: the policy's purpose with the host's name and how
// far that name is established. A forwarded login is one with any forwarding hop; the device is
// told only that, not the hops.
ApprovalPurpose approvalPurposeOf(const RequestPurpose& purpose, const HostNameStatus& hostName);

}  // namespace quorvane
