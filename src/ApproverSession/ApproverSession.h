#pragma once

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "AgentState/SupportState.h"
#include "ApprovalProto/ApprovalResponseMessage.h"
#include "ApprovalProto/DeviceKeys.h"
#include "ApproverSession/ApproverInbox.h"
#include "ApproverSession/RelayDirectory.h"
#include "Pairing/PairedMac.h"
#include "Platform/Clock.h"
#include "RelayClient/RelayError.h"

namespace quorvane {

// A request waiting for this side's answer, with the computer that asked.
struct WaitingRequest {
  ApprovalRequestMessage request;
  std::string computer;  // the asking computer's name
  Date receivedAt;

  friend bool operator==(const WaitingRequest&, const WaitingRequest&) = default;
};

// The approving side of the approval protocol: it receives the requests that paired computers
// send to this side's mailboxes, keeps them in the inbox file between runs, answers them, and
// unpairs. Every run of the command line makes its own session on the same support folder; the
// inbox file's lock keeps their changes apart. Not itself thread-safe: one thread uses a session.
class ApproverSession {
 public:
  // `keys`: this side's approval keys; `relays` and `clock` must outlive the session.
  ApproverSession(SupportState support, DeviceKeys keys, RelayDirectory& relays, Clock& clock);

  // What one receive found.
  struct Received {
    std::vector<WaitingRequest> arrived;           // new requests, in the relays' order
    std::vector<WaitingRequest> settledElsewhere;  // dropped: answered on the computer or elsewhere
    std::vector<WaitingRequest> expired;           // dropped: their deadline passed
    std::vector<std::string> unpairedBy;           // computers that removed the pairing
    std::vector<std::string> rejected;             // QAPFailure names of dropped messages
    // Relays that could not be read, with the error.
    std::vector<std::pair<std::string, RelayError>> relayFailures;
    // Relays of paired computers on which this side has no mailbox: nothing can arrive there
    // until the computer is paired again.
    std::vector<std::string> withoutMailbox;
  };

  // Fetches once from this side's mailbox on every relay of the paired computers and applies
  // what came: approval requests (opened from the paired computers; one that does not open or
  // has expired is dropped, the failure recorded), resolved notices (the request is dropped), and
  // unpair notices from a computer (its pairing record and its requests are removed, and the send
  // token this side issued to it is withdrawn). With `wait` and a single relay, the fetch waits
  // for a message (a long poll). Relay errors do not throw: they are listed in the result.
  // Throws ApproverError notPaired when no computer is paired.
  Received receive(bool wait, std::stop_token stop = {});

  // The requests that wait now, oldest first (expired ones are dropped first).
  std::vector<WaitingRequest> waiting();

  // Everything a watch shows, read in one go: the waiting requests, the recently closed ones
  // (to say why a request went: answered by another run, settled elsewhere, expired) and the
  // paired computers. Another run's changes (an answer, a receive) show up here.
  struct Snapshot {
    std::vector<WaitingRequest> waiting;
    std::vector<ClosedRequest> closed;
    std::vector<PairedMac> computers;
  };
  Snapshot snapshot();

  // The waiting or recently closed request that `typedID` (its hex id or a prefix of it) names.
  // ApproverError: noSuchRequest, ambiguousRequest, and settledElsewhere / requestExpired /
  // alreadyAnswered for one that no longer waits.
  WaitingRequest find(std::string_view typedID);

  // Answers the request `typedID` names: builds the response (decidedAt now, this side's id),
  // seals it to the asking computer and sends it to that computer's mailbox. The request is
  // marked answered before sending, so that a second run cannot answer it too; if sending fails
  // it waits again and the RelayError passes through. Besides find's errors: scopeNotOffered
  // (five minutes when the request offered only once), computerGone.
  ApprovalResponseMessage answer(std::string_view typedID, ApprovalDecision decision,
                                 qap::ApprovalScope scope, bool fingerprintShown,
                                 std::stop_token stop = {});

  // What unpairing did besides removing the record.
  struct Unpaired {
    PairedMac computer;
    std::optional<RelayError> noticeFailure;  // the computer was not told
    std::optional<RelayError> revokeFailure;  // the send token could not be withdrawn
  };

  // Removes the pairing with the computer named `name` (or whose identityFingerprint is `name`):
  // sends it this side's unpair notice, withdraws the send token issued to it, deletes its record
  // and its waiting requests. The record goes even when the relay cannot be reached (the result
  // says what was left undone). ApproverError: notPaired, noSuchComputer, ambiguousComputer.
  Unpaired unpair(std::string_view name, std::stop_token stop = {});

  // The paired computers, as stored.
  std::vector<PairedMac> computers() const;

  // The latest dropped messages, newest last.
  std::vector<InboxFailure> failures() const;

 private:
  // The paired computers; ApproverError notPaired when there are none.
  std::vector<PairedMac> pairedOrThrow() const;
  // The name of the computer whose identity hash is `macID` (empty when not paired).
  static std::string computerNamed(const std::vector<PairedMac>& macs, const Bytes& macID);
  WaitingRequest waitingFrom(const InboxRequest& request, const std::vector<PairedMac>& macs) const;
  // Applies fetched messages of one mailbox; returns the computers that unpaired.
  std::vector<PairedMac> apply(const std::string& relayURL, const std::string& mailboxID,
                               const std::vector<RelayMessage>& messages, Received& received);
  void withdrawSendToken(const PairedMac& computer, std::stop_token stop);

  SupportState support_;
  DeviceKeys keys_;
  RelayDirectory& relays_;
  Clock& clock_;
};

}  // namespace quorvane
