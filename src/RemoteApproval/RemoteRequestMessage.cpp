#include "RemoteApproval/RemoteRequestMessage.h"

#include "AgentEngine/ApprovalPurposeOf.h"
#include "ApprovalProto/ProtocolTime.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {

ApprovalRequestMessage remoteRequestMessage(const ApprovalRequest& request, const Bytes& macID,
                                            Date now) {
  ApprovalRequestMessage message;
  message.requestID.assign(request.id.bytes.begin(), request.id.bytes.end());
  message.macID = macID;
  message.createdAt = millisecondsSince1970(now);
  message.expiresAt = millisecondsSince1970(request.expiresAt);
  message.keyFingerprint = fingerprint(request.key.publicKeyBlob);
  message.keyName = request.key.name;
  message.purpose = approvalPurposeOf(request.purpose, request.hostName);
  const RequestOrigin& origin = request.origin;
  message.appName = origin.appName;
  message.appVerified = origin.appTeamID.has_value();
  message.chain = origin.chainPaths;
  message.workingDirectory = origin.workingDirectory.value_or("");
  if (origin.gitHint) message.hint = std::string(rawValue(*origin.gitHint));
  message.dataHash = request.dataHash;
  message.scopes = {qap::ApprovalScope::once};
  if (request.windowAllowed) message.scopes.push_back(qap::ApprovalScope::fiveMinutes);
  return message;
}

}  // namespace quorvane
