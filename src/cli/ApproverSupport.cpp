#include "cli/ApproverSupport.h"

#include <cmath>
#include <iostream>
#include <variant>

#include "AgentState/ProtocolIdentity.h"
#include "AgentState/RelaySetting.h"
#include "ApprovalProto/ProtocolTime.h"
#include "ApproverSession/ApproverError.h"
#include "ApproverSession/RequestIDs.h"
#include "ApproverSession/RequestText.h"
#include "Base/Hex.h"
#include "RelayClient/RelayTexts.h"
#include "cli/Terminal.h"

namespace quorvane::cli {

HTTPRelayDirectory::HTTPRelayDirectory(const SupportState& support) : support_(support) {}

std::optional<std::filesystem::path> HTTPRelayDirectory::caFileFor(
    const std::string& relayURL) const {
  try {
    std::optional<RelaySetting> setting = loadRelaySetting(support_);
    if (!setting) return std::nullopt;
    // Compared as the HTTP library writes them back, so that "https://r.example" and
    // "https://r.example/" are the same relay.
    std::string problem;
    const std::optional<std::string> wanted = checkedRelayBaseURL(relayURL, problem);
    const std::optional<std::string> set = checkedRelayBaseURL(setting->baseURL, problem);
    if (setting->baseURL == relayURL || (wanted && set && *wanted == *set)) return setting->caFile;
  } catch (const std::exception&) {
    // No usable setting: the system's authorities are the ones to trust.
  }
  return std::nullopt;
}

RelayConnection HTTPRelayDirectory::connect(const std::string& relayURL) {
  std::unique_ptr<RelayClient>& client = clients_[relayURL];
  if (!client)
    client = std::make_unique<RelayClient>(RelayEndpoint{relayURL, caFileFor(relayURL), {}});
  return {*client, client->cursors()};
}

std::unique_ptr<ApproverRun> ApproverRun::open() {
  auto run = std::make_unique<ApproverRun>(SupportState::open());
  std::optional<DeviceKeys> keys = loadDeviceKeys(*run->support.keychain);
  if (!keys) throw ApproverError(ApproverErrorKind::notPaired, "");
  run->session.emplace(run->support, std::move(*keys), run->relays, run->clock);
  return run;
}

void showWaitingRequest(const WaitingRequest& waiting, Date now) {
  const ApprovalRequestMessage& request = waiting.request;
  const double left = std::max(0.0, dateFromMilliseconds(request.expiresAt).secondsSince(now));
  std::cout << "\n" << printable(requestReason(request)) << "\n";
  std::cout << "  request  " << shortRequestID(request.requestID) << " from "
            << printable(waiting.computer) << " (expires in " << static_cast<long>(std::ceil(left))
            << " s)\n";
  std::cout << "  key      " << printable(request.keyName) << "  "
            << printable(request.keyFingerprint) << "\n";
  if (const auto* login = std::get_if<ApprovalPurpose::Login>(&request.purpose.value)) {
    std::cout << "  host     " << printable(login->hostName.value_or("unknown")) << " ("
              << hostNameCertainty(request.purpose) << ")\n";
    if (login->hostKeyFingerprint)
      std::cout << "  host key " << printable(*login->hostKeyFingerprint) << "\n";
    if (!login->user.empty()) std::cout << "  user     " << printable(login->user) << "\n";
    std::cout << "  through  "
              << (login->forwarded ? "a forwarded agent connection" : "this computer's own agent")
              << "\n";
  }
  std::cout << "  program  " << printable(request.appName)
            << (request.appVerified ? " (verified)" : " (not verified)") << "\n";
  for (const std::string& parent : request.chain)
    std::cout << "           " << printable(parent) << "\n";
  if (!request.workingDirectory.empty())
    std::cout << "  folder   " << printable(request.workingDirectory) << "\n";
  if (!request.hint.empty()) std::cout << "  hint     " << printable(request.hint) << "\n";
}

JSON waitingRequestJSON(const WaitingRequest& waiting) {
  const ApprovalRequestMessage& request = waiting.request;
  JSON purpose;
  std::visit(
      [&](const auto& value) {
        using Purpose = std::decay_t<decltype(value)>;
        if constexpr (std::is_same_v<Purpose, ApprovalPurpose::Login>) {
          purpose = {{"kind", "login"},
                     {"user", value.user},
                     {"forwarded", value.forwarded},
                     {"hostNameCertainty", hostNameCertainty(request.purpose)}};
          if (value.hostName) purpose["hostName"] = *value.hostName;
          if (value.hostKeyFingerprint) purpose["hostKeyFingerprint"] = *value.hostKeyFingerprint;
        } else if constexpr (std::is_same_v<Purpose, ApprovalPurpose::Signature>) {
          purpose = {{"kind", "signature"}, {"namespace", value.namespace_}};
        } else {
          purpose = {{"kind", "other"}};
        }
      },
      request.purpose.value);
  JSON scopes = JSON::array();
  for (qap::ApprovalScope scope : request.scopes)
    scopes.push_back(scope == qap::ApprovalScope::once ? "once" : "fiveMinutes");
  return {{"id", shortRequestID(request.requestID)},
          {"requestID", hexEncode(request.requestID)},
          {"computer", waiting.computer},
          {"reason", requestReason(request)},
          {"action", requestAction(request.purpose)},
          {"purpose", purpose},
          {"keyName", request.keyName},
          {"keyFingerprint", request.keyFingerprint},
          {"appName", request.appName},
          {"appVerified", request.appVerified},
          {"chain", request.chain},
          {"workingDirectory", request.workingDirectory},
          {"hint", request.hint},
          {"scopes", scopes},
          {"createdAt", dateFromMilliseconds(request.createdAt).iso8601()},
          {"expiresAt", dateFromMilliseconds(request.expiresAt).iso8601()},
          {"receivedAt", waiting.receivedAt.iso8601()}};
}

std::string relayProblemText(const std::string& relayURL, const RelayError& error) {
  return "The relay " + relayURL + " can't be used now: " + relayFailureText(error);
}

std::string missingMailboxText(const std::string& relayURL) {
  return "This computer has no mailbox on the relay " + relayURL +
         ", so no request can reach it there. Pair again with quorvane approver pair CODE.";
}

}  // namespace quorvane::cli
