#include "AgentEngine/AgentConnection.h"

#include "SSHWire/AgentExtensions.h"
#include "SSHWire/AgentRequest.h"
#include "SSHWire/SessionBind.h"
#include "SSHWire/WireError.h"

namespace quorvane {

AgentConnection::AgentConnection(Agent& agent, AnnouncementBoard& announcements, Clock& clock,
                                 RequestOrigin origin, std::optional<std::string> claimedHost,
                                 ProcessInstance peer)
    : agent_(agent),
      announcements_(announcements),
      clock_(clock),
      origin_(std::move(origin)),
      claimedHost_(std::move(claimedHost)),
      peer_(peer) {}

AgentResponse AgentConnection::handle(ByteView body, ClientWatch& watch) {
  AgentRequest request;
  try {
    request = AgentRequest::parse(body);
  } catch (const WireError&) {
    return AgentResponse::failure();
  }
  return dispatch(request, watch);
}

// Every extension the agent knows, in one place. An announcement that does not parse is answered
// as an unknown extension.
AgentResponse AgentConnection::handleExtension(const std::string& name, ByteView contents) {
  if (name == kAnnounceExtension) {
    auto announcement = parseAnnouncementContents(contents, clock_.now());
    if (!announcement) return AgentResponse::extensionFailure();
    announcements_.record(peer_, std::move(*announcement));
    return AgentResponse::success();
  }
  if (name == kSessionBindExtension) {
    try {
      bindings_.record(SessionBind::parse(contents));
      return AgentResponse::success();
    } catch (const std::exception&) {
      return AgentResponse::failure();
    }
  }
  if (name == kQueryExtension) return queryExtensionResponse();
  return AgentResponse::extensionFailure();
}

AgentResponse AgentConnection::dispatch(const AgentRequest& request, ClientWatch& watch) {
  if (std::holds_alternative<AgentRequest::RequestIdentities>(request.value))
    return {AgentResponse::Identities{agent_.identities()}};
  if (std::holds_alternative<AgentRequest::Lock>(request.value)) {
    agent_.lock();
    return AgentResponse::success();
  }
  if (auto* extension = std::get_if<AgentRequest::Extension>(&request.value))
    return handleExtension(extension->name, extension->contents);
  auto* sign = std::get_if<AgentRequest::Sign>(&request.value);
  if (sign == nullptr) return AgentResponse::failure();  // unlock and everything else

  SignInput input;
  input.keyBlob = sign->keyBlob;
  input.data = sign->data;
  input.flags = sign->flags;
  input.purpose = SignPurpose::classify(sign->data, sign->keyBlob);
  if (auto* login = std::get_if<SignPurpose::UserAuth>(&input.purpose.value))
    input.verdict = bindings_.verdict(*login);
  input.origin = origin_;
  if (auto announced = announcements_.current(peer_, clock_.now())) {
    input.origin.claimedReason = announced->reason;
    input.origin.claimedSeconds = announced->seconds;
  }
  input.claimedHost = claimedHost_;
  auto signature = agent_.sign(input, watch);
  if (!signature) return AgentResponse::failure();
  return {AgentResponse::Signature{std::move(*signature)}};
}

}  // namespace quorvane
