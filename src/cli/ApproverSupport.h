#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>

#include "AgentState/SupportState.h"
#include "ApproverSession/ApproverSession.h"
#include "Base/JSONReader.h"
#include "Platform/Clock.h"
#include "RelayClient/RelayClient.h"

namespace quorvane::cli {

// HTTPS clients of the relays the paired computers use, made on first use. A relay whose URL is
// this home's relay setting is trusted through that setting's CA file, if it names one.
class HTTPRelayDirectory final : public RelayDirectory {
 public:
  explicit HTTPRelayDirectory(const SupportState& support);
  RelayConnection connect(const std::string& relayURL) override;

 private:
  std::optional<std::filesystem::path> caFileFor(const std::string& relayURL) const;

  const SupportState& support_;
  std::map<std::string, std::unique_ptr<RelayClient>> clients_;
};

// Everything one run of an approver command works with. No agent is needed.
struct ApproverRun {
  explicit ApproverRun(SupportState state) : support(std::move(state)) {}
  ApproverRun(const ApproverRun&) = delete;
  ApproverRun& operator=(const ApproverRun&) = delete;

  SupportState support;
  HTTPRelayDirectory relays{support};
  SystemClock clock;
  std::optional<ApproverSession> session;

  // Opens the support folder and this computer's approval keys. Without keys nothing was ever
  // paired: ApproverError notPaired.
  static std::unique_ptr<ApproverRun> open();
};

// A request as `approver pending` and `approver watch` show it: the reason in the local prompt's
// words, then its id, the key with its fingerprint, the host and how sure its name is, the
// program and its parents, the folder and the hint.
void showWaitingRequest(const WaitingRequest& waiting, Date now);

// The same for scripts, with the full hex id beside the short one.
JSON waitingRequestJSON(const WaitingRequest& waiting);

// The relay's failure in the words the user reads, naming the relay.
std::string relayProblemText(const std::string& relayURL, const RelayError& error);

// Said when this computer has no mailbox on a paired computer's relay.
std::string missingMailboxText(const std::string& relayURL);

}  // namespace quorvane::cli
