#pragma once

#include "AgentEngine/Approval.h"
#include "ApprovalProto/ApprovalRequestMessage.h"
#include "Base/Bytes.h"
#include "Base/Date.h"

namespace quorvane {

// The message that asks paired devices about `request`: its UUID's 16 bytes as requestID, this
// computer's identity hash as macID, created now and due when the request expires (milliseconds),
// the key's fingerprint and name, the purpose with how sure the host's name is, the program, its
// chain and folder (verified when the program has a signing team), "fetch" or "push" for a Git
// transfer, the data's hash, and the scopes: once, plus fiveMinutes when a window is allowed.
ApprovalRequestMessage remoteRequestMessage(const ApprovalRequest& request, const Bytes& macID,
                                            Date now);

}  // namespace quorvane
