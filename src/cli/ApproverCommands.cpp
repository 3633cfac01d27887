#include <iostream>

#include "AgentState/PairingFiles.h"
#include "ApprovalProto/ProtocolTime.h"
#include "ApproverSession/ApproverError.h"
#include "ApproverSession/RequestIDs.h"
#include "ApproverSession/RequestText.h"
#include "Base/Hex.h"
#include "RelayClient/RelayTexts.h"
#include "cli/ApproverSupport.h"
#include "cli/CommandSupport.h"
#include "cli/Commands.h"
#include "cli/Terminal.h"

namespace quorvane::cli {
namespace {

struct ApproverOptions {
  bool json = false;
  std::string id;
  std::string decision;
  bool fiveMinutes = false;
  std::string name;
  bool yes = false;
};
ApproverOptions options;

// Fetches what arrived since the last run, so that a listing or an answer works on fresh state.
// A relay that can't be reached is reported and what is stored is used.
void catchUp(ApproverSession& session) {
  const ApproverSession::Received received = session.receive(false);
  for (const auto& [relayURL, error] : received.relayFailures)
    std::cerr << "quorvane: " << relayProblemText(relayURL, error)
              << " What arrived before is shown.\n";
  for (const std::string& relayURL : received.withoutMailbox)
    std::cerr << "quorvane: " << missingMailboxText(relayURL) << "\n";
}

void listPending() {
  auto run = ApproverRun::open();
  catchUp(*run->session);
  const std::vector<WaitingRequest> waiting = run->session->waiting();
  if (options.json) {
    JSON list = JSON::array();
    for (const WaitingRequest& request : waiting) list.push_back(waitingRequestJSON(request));
    return printJSON(list);
  }
  if (waiting.empty()) {
    std::cout << "Nothing is waiting.\n";
    return;
  }
  for (const WaitingRequest& request : waiting) showWaitingRequest(request, run->clock.now());
  std::cout << "\nAnswer with quorvane approver answer ID (approve [--five-minutes] | deny | "
               "block).\n";
}

std::string answeredText(ApprovalDecision decision, qap::ApprovalScope scope) {
  switch (decision) {
    case ApprovalDecision::approve:
      return scope == qap::ApprovalScope::fiveMinutes ? "Approved for five minutes"
                                                      : "Approved once";
    case ApprovalDecision::deny: return "Denied";
    case ApprovalDecision::denyAndBlock: return "Denied and blocked";
  }
  return "Answered";
}

void answerRequest() {
  if (options.fiveMinutes && options.decision != "approve")
    throw CommandFailure("--five-minutes goes with approve only");
  const ApprovalDecision decision = options.decision == "approve" ? ApprovalDecision::approve
                                    : options.decision == "deny"  ? ApprovalDecision::deny
                                                                  : ApprovalDecision::denyAndBlock;
  const qap::ApprovalScope scope =
      options.fiveMinutes ? qap::ApprovalScope::fiveMinutes : qap::ApprovalScope::once;
  auto run = ApproverRun::open();
  // A notice that the request was settled elsewhere may be waiting on the relay.
  run->session->receive(false);
  const WaitingRequest request = run->session->find(options.id);
  ApprovalResponseMessage response;
  try {
    response = run->session->answer(options.id, decision, scope, false);
  } catch (const RelayError& error) {
    throw CommandFailure(relayFailureText(error) + " Nothing was sent; the request still waits.");
  }
  if (options.json)
    return printJSON(
        {{"id", shortRequestID(response.requestID)},
         {"requestID", hexEncode(response.requestID)},
         {"computer", request.computer},
         {"decision", options.decision},
         {"scope", response.scope == qap::ApprovalScope::once ? "once" : "fiveMinutes"}});
  std::cout << answeredText(decision, response.scope) << ": "
            << printable(requestReason(request.request)) << " (request "
            << shortRequestID(response.requestID) << " from " << printable(request.computer)
            << ").\n";
}

void listComputers() {
  // Without approval keys nothing was ever paired: an empty list, not a failure.
  SupportState support = SupportState::open();
  const std::vector<PairedMac> computers = loadPairedMacs(support);
  if (options.json) {
    JSON list = JSON::array();
    for (const PairedMac& mac : computers)
      list.push_back({{"name", mac.identity.name},
                      {"pairedAt", mac.pairedAt.iso8601()},
                      {"relayURL", mac.relayURL},
                      {"fingerprint", identityFingerprint(mac.identity)},
                      {"identityHash", hexEncode(mac.identity.identityHash())}});
    return printJSON(list);
  }
  if (computers.empty()) {
    std::cout
        << "No computer is paired with this one. Pair one with quorvane approver pair CODE.\n";
    return;
  }
  for (const PairedMac& mac : computers)
    std::cout << printable(mac.identity.name) << "\n  paired   " << mac.pairedAt.iso8601()
              << "\n  relay    " << printable(mac.relayURL) << "\n  identity "
              << identityFingerprint(mac.identity) << "\n";
}

void unpairComputer() {
  auto run = ApproverRun::open();
  // Refuses an unknown name before asking anything.
  bool known = false;
  for (const PairedMac& mac : run->session->computers())
    known = known || mac.identity.name == options.name ||
            identityFingerprint(mac.identity) == options.name;
  if (!known) throw ApproverError(ApproverErrorKind::noSuchComputer, options.name);
  confirmChange("Unpair " + options.name + "? It can then no longer ask this computer to approve.",
                options.yes, "unpair a computer");
  const ApproverSession::Unpaired done = run->session->unpair(options.name);
  const std::string name = printable(done.computer.identity.name);
  std::cout << "Unpaired " << name << ".\n";
  if (done.noticeFailure)
    std::cout << name << " was not told (" << relayFailureText(*done.noticeFailure)
              << "); its requests to this computer are ignored from now on.\n";
  if (done.revokeFailure)
    std::cout << "Its permission to post to this computer's mailbox could not be withdrawn ("
              << relayFailureText(*done.revokeFailure) << ").\n";
}

}  // namespace

void addApproverCommands(CLI::App& app) {
  CLI::App* approver = app.add_subcommand(
      "approver", "approve requests of another computer from this one: pair, watch, answer");
  approver->require_subcommand(1);
  approver->footer(
      "This computer receives requests only while a command of this group runs (no push service "
      "reaches it): keep quorvane approver watch open, or run quorvane approver pending.");
  addApproverPairCommand(*approver);

  CLI::App* watch = approver->add_subcommand(
      "watch", "show each request from the paired computers as it arrives and answer it");
  addJSONFlag(watch, options.json);
  watch->footer(
      "On a terminal each request is shown and answered with o (once), f (five minutes, when "
      "offered), d (deny) or b (deny and block). Without a terminal on standard input, or with "
      "--json, requests are only listed as they come (one JSON object a line with --json); answer "
      "them with quorvane approver answer. Ctrl-C stops.");
  watch->callback([] { watchApproverRequests(options.json); });

  CLI::App* pending =
      approver->add_subcommand("pending", "list the requests from paired computers that wait");
  addJSONFlag(pending, options.json);
  pending->callback(listPending);

  CLI::App* answer = approver->add_subcommand("answer", "answer a waiting request");
  answer->add_option("ID", options.id, "the request's id, or its first digits (see pending)")
      ->required();
  answer->add_option("DECISION", options.decision, "approve, deny, or block (deny and block)")
      ->required()
      ->check(CLI::IsMember({"approve", "deny", "block"}));
  answer->add_flag("--five-minutes", options.fiveMinutes,
                   "approve the same use for five minutes, when the request offers it");
  addJSONFlag(answer, options.json);
  answer->callback(answerRequest);

  CLI::App* list = approver->add_subcommand("list", "list the computers this one approves for");
  addJSONFlag(list, options.json);
  list->callback(listComputers);

  CLI::App* unpair = approver->add_subcommand(
      "unpair", "stop approving for a computer, and tell it so through the relay");
  unpair->add_option("NAME", options.name, "the computer's name or identity (see list)")
      ->required();
  unpair->add_flag("--yes", options.yes, "do not ask for confirmation");
  unpair->callback(unpairComputer);
}

}  // namespace quorvane::cli
