#include "ApproverSession/ApproverSession.h"

#include <algorithm>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/Notices.h"
#include "ApprovalProto/ProtocolTime.h"
#include "ApprovalProto/QAPFailure.h"
#include "ApproverSession/ApproverError.h"
#include "ApproverSession/InboxFile.h"
#include "ApproverSession/RequestIDs.h"
#include "ApproverSession/RequestText.h"

namespace quorvane {
namespace {

std::vector<DeviceIdentity> identitiesOf(const std::vector<PairedMac>& macs) {
  std::vector<DeviceIdentity> identities;
  for (const PairedMac& mac : macs) identities.push_back(mac.identity);
  return identities;
}

const PairedMac* macWithID(const std::vector<PairedMac>& macs, const Bytes& macID) {
  auto found = std::ranges::find_if(
      macs, [&](const PairedMac& mac) { return mac.identity.identityHash() == macID; });
  return found == macs.end() ? nullptr : &*found;
}

bool offers(const ApprovalRequestMessage& request, qap::ApprovalScope scope) {
  return std::ranges::find(request.scopes, scope) != request.scopes.end();
}

// The waiting request that `typed` names, or the refusal that says why it does not wait.
const InboxRequest& locate(const ApproverInbox& inbox, std::string_view typed) {
  std::vector<Bytes> known;
  for (const InboxRequest& waiting : inbox.open) known.push_back(waiting.request.requestID);
  for (const ClosedRequest& gone : inbox.closed) known.push_back(gone.requestID);
  const std::vector<Bytes> matches = requestIDsMatching(typed, known);
  if (matches.empty()) throw ApproverError(ApproverErrorKind::noSuchRequest, std::string(typed));
  if (matches.size() > 1)
    throw ApproverError(ApproverErrorKind::ambiguousRequest, std::string(typed));
  if (const InboxRequest* waiting = inbox.findOpen(matches.front())) return *waiting;
  const ClosedRequest& gone = *inbox.findClosed(matches.front());
  const std::string shown = shortRequestID(gone.requestID);
  switch (gone.reason) {
    case ClosedReason::answered: throw ApproverError(ApproverErrorKind::alreadyAnswered, shown);
    case ClosedReason::settledElsewhere:
      throw ApproverError(ApproverErrorKind::settledElsewhere, shown);
    case ClosedReason::expired: break;
  }
  throw ApproverError(ApproverErrorKind::requestExpired, shown);
}

}  // namespace

ApproverSession::ApproverSession(SupportState support, DeviceKeys keys, RelayDirectory& relays,
                                 Clock& clock)
    : support_(std::move(support)), keys_(std::move(keys)), relays_(relays), clock_(clock) {}

std::vector<PairedMac> ApproverSession::computers() const { return loadPairedMacs(support_); }

std::vector<InboxFailure> ApproverSession::failures() const { return readInbox(support_).failures; }

std::vector<PairedMac> ApproverSession::pairedOrThrow() const {
  std::vector<PairedMac> macs = computers();
  if (macs.empty()) throw ApproverError(ApproverErrorKind::notPaired, "");
  return macs;
}

std::string ApproverSession::computerNamed(const std::vector<PairedMac>& macs, const Bytes& macID) {
  const PairedMac* mac = macWithID(macs, macID);
  return mac == nullptr ? "" : mac->identity.name;
}

WaitingRequest ApproverSession::waitingFrom(const InboxRequest& request,
                                            const std::vector<PairedMac>& macs) const {
  return {request.request, computerNamed(macs, request.request.macID), request.receivedAt};
}

ApproverSession::Received ApproverSession::receive(bool wait, std::stop_token stop) {
  const std::vector<PairedMac> macs = pairedOrThrow();
  std::vector<std::string> relayURLs;
  for (const PairedMac& mac : macs)
    if (std::ranges::find(relayURLs, mac.relayURL) == relayURLs.end())
      relayURLs.push_back(mac.relayURL);
  // A waiting fetch on one relay would hold up the others, so only a single relay is long-polled.
  const bool longPoll = wait && relayURLs.size() == 1;

  Received received;
  bool fetched = false;
  for (const std::string& relayURL : relayURLs) {
    const std::optional<MailboxCredentials> own =
        loadOwnMailbox(*support_.keychain, relayURL, MailboxRole::approving);
    if (!own) {
      received.withoutMailbox.push_back(relayURL);
      continue;
    }
    RelayConnection relay = relays_.connect(relayURL);
    // Start where the inbox says: another run may have read further than this client.
    const ApproverInbox inbox = readInbox(support_);
    if (auto at = inbox.cursors.find({relayURL, own->id}); at != inbox.cursors.end())
      relay.cursors.raise(own->id, at->second);
    std::vector<RelayMessage> messages;
    try {
      messages = relay.transport.fetch(*own, longPoll, stop);
    } catch (const RelayError& error) {
      received.relayFailures.emplace_back(relayURL, error);
      continue;
    }
    fetched = true;
    for (const PairedMac& gone : apply(relayURL, own->id, messages, received)) {
      try {
        withdrawSendToken(gone, stop);
      } catch (const RelayError&) {
        // The computer has gone either way; a token left behind only lets it post to a
        // mailbox whose messages from it are now dropped.
      }
    }
  }
  if (!fetched) apply("", "", {}, received);  // still drop what expired meanwhile
  return received;
}

std::vector<PairedMac> ApproverSession::apply(const std::string& relayURL,
                                              const std::string& mailboxID,
                                              const std::vector<RelayMessage>& messages,
                                              Received& received) {
  const Date now = clock_.now();
  const uint64_t nowMilliseconds = millisecondsSince1970(now);
  std::vector<PairedMac> unpaired;
  updateInbox(support_, [&](ApproverInbox& inbox) {
    std::vector<PairedMac> macs = loadPairedMacs(support_);
    uint64_t* cursor = relayURL.empty() ? nullptr : &inbox.cursors[{relayURL, mailboxID}];
    for (const RelayMessage& message : messages) {
      if (cursor != nullptr && message.seq <= *cursor) continue;  // another run applied it
      if (cursor != nullptr) *cursor = message.seq;
      const std::vector<DeviceIdentity> identities = identitiesOf(macs);
      const ByteView body = message.envelope.body;
      try {
        switch (message.envelope.kind) {
          case EnvelopeKind::approvalRequest: {
            OpenedRequest opened = openApprovalRequest(body, keys_, identities);
            const Bytes& id = opened.request.requestID;
            if (inbox.findOpen(id) || inbox.findClosed(id)) break;   // delivered again
            if (nowMilliseconds >= opened.request.expiresAt) break;  // too late to answer
            InboxRequest arrived{std::move(opened.request), now};
            received.arrived.push_back(waitingFrom(arrived, macs));
            inbox.addOpen(std::move(arrived));
            break;
          }
          case EnvelopeKind::resolved: {
            const OpenedResolvedNotice opened = openResolvedNotice(body, keys_, identities);
            const InboxRequest* waiting = inbox.findOpen(opened.notice.requestID);
            if (waiting == nullptr || waiting->request.macID != opened.notice.macID) break;
            received.settledElsewhere.push_back(waitingFrom(*waiting, macs));
            inbox.close(waiting->request.requestID, waiting->request.expiresAt,
                        ClosedReason::settledElsewhere);
            break;
          }
          case EnvelopeKind::unpair: {
            const OpenedUnpairNotice opened = openUnpairNotice(body, true, keys_, identities);
            const PairedMac mac = macs[opened.senderIndex];
            // A notice about an earlier pairing with the same computer leaves this one alone.
            if (!opened.notice.pairingID.empty() && mac.pairingID &&
                *mac.pairingID != opened.notice.pairingID)
              break;
            const Bytes macID = mac.identity.identityHash();
            std::erase_if(inbox.open,
                          [&](const InboxRequest& r) { return r.request.macID == macID; });
            macs.erase(macs.begin() + static_cast<ptrdiff_t>(opened.senderIndex));
            received.unpairedBy.push_back(mac.identity.name);
            unpaired.push_back(mac);
            break;
          }
          default: break;  // answers and pairing messages are for other parts of this program
        }
      } catch (const QAPFailure& failure) {
        inbox.recordFailure(now, std::string(failure.kindName()));
        received.rejected.emplace_back(failure.kindName());
      } catch (const std::exception&) {
        // Hostile bytes that upset a library below: dropped like any message that does not open.
        inbox.recordFailure(now, "unreadable");
        received.rejected.emplace_back("unreadable");
      }
    }
    for (const InboxRequest& gone : inbox.sweep(now))
      received.expired.push_back(waitingFrom(gone, macs));
    if (!unpaired.empty()) savePairedMacs(support_, macs);
  });
  return unpaired;
}

void ApproverSession::withdrawSendToken(const PairedMac& computer, std::stop_token stop) {
  if (!computer.deviceSendToken) return;
  const std::optional<MailboxCredentials> own =
      loadOwnMailbox(*support_.keychain, computer.relayURL, MailboxRole::approving);
  if (!own) return;
  relays_.connect(computer.relayURL)
      .transport.revokeSendToken(*own, *computer.deviceSendToken, stop);
}

std::vector<WaitingRequest> ApproverSession::waiting() { return snapshot().waiting; }

ApproverSession::Snapshot ApproverSession::snapshot() {
  Snapshot result;
  result.computers = computers();
  updateInbox(support_, [&](ApproverInbox& inbox) {
    inbox.sweep(clock_.now());
    for (const InboxRequest& request : inbox.open)
      result.waiting.push_back(waitingFrom(request, result.computers));
    result.closed = inbox.closed;
  });
  return result;
}

WaitingRequest ApproverSession::find(std::string_view typedID) {
  const std::vector<PairedMac> macs = computers();
  std::optional<WaitingRequest> result;
  updateInbox(support_, [&](ApproverInbox& inbox) {
    inbox.sweep(clock_.now());
    result = waitingFrom(locate(inbox, typedID), macs);
  });
  return std::move(*result);
}

ApprovalResponseMessage ApproverSession::answer(std::string_view typedID, ApprovalDecision decision,
                                                qap::ApprovalScope scope, bool fingerprintShown,
                                                std::stop_token stop) {
  const std::vector<PairedMac> macs = pairedOrThrow();
  std::optional<InboxRequest> answered;
  std::optional<PairedMac> computer;
  updateInbox(support_, [&](ApproverInbox& inbox) {
    inbox.sweep(clock_.now());
    const InboxRequest& found = locate(inbox, typedID);
    const std::string shown = shortRequestID(found.request.requestID);
    // A refusal carries a scope too, and the computer checks it against the offered ones.
    if (decision != ApprovalDecision::approve && !found.request.scopes.empty() &&
        !offers(found.request, scope))
      scope = found.request.scopes.front();
    if (!offers(found.request, scope))
      throw ApproverError(ApproverErrorKind::scopeNotOffered, shown);
    const PairedMac* mac = macWithID(macs, found.request.macID);
    if (mac == nullptr) throw ApproverError(ApproverErrorKind::computerGone, shown);
    answered = found;
    computer = *mac;
    inbox.close(found.request.requestID, found.request.expiresAt, ClosedReason::answered);
  });

  const ApprovalRequestMessage& request = answered->request;
  ApprovalResponseMessage response{request.requestID,
                                   request.macID,
                                   keys_.identity().identityHash(),
                                   decision,
                                   scope,
                                   request.dataHash,
                                   millisecondsSince1970(clock_.now()),
                                   fingerprintShown};
  try {
    relays_.connect(computer->relayURL)
        .transport.send(computer->mailbox,
                        sealApprovalResponse(response, keys_, computer->identity), false, stop);
  } catch (const RelayError&) {
    // Not sent: the request waits again (unless it was closed for another reason meanwhile).
    updateInbox(support_, [&](ApproverInbox& inbox) {
      const ClosedRequest* gone = inbox.findClosed(request.requestID);
      if (gone == nullptr || gone->reason != ClosedReason::answered) return;
      std::erase_if(inbox.closed,
                    [&](const ClosedRequest& c) { return c.requestID == request.requestID; });
      inbox.addOpen(*answered);
      inbox.sweep(clock_.now());
    });
    throw;
  }
  return response;
}

ApproverSession::Unpaired ApproverSession::unpair(std::string_view name, std::stop_token stop) {
  const std::vector<PairedMac> macs = pairedOrThrow();
  std::vector<const PairedMac*> named;
  for (const PairedMac& mac : macs)
    if (mac.identity.name == name || identityFingerprint(mac.identity) == name)
      named.push_back(&mac);
  if (named.empty()) throw ApproverError(ApproverErrorKind::noSuchComputer, std::string(name));
  if (named.size() > 1)
    throw ApproverError(ApproverErrorKind::ambiguousComputer, std::string(name));

  Unpaired result{*named.front(), std::nullopt, std::nullopt};
  const PairedMac& computer = result.computer;
  const UnpairNotice notice{keys_.identity().identityHash(), computer.pairingID.value_or(Bytes{})};
  try {
    relays_.connect(computer.relayURL)
        .transport.send(computer.mailbox, sealUnpairNotice(notice, false, keys_, computer.identity),
                        false, stop);
  } catch (const RelayError& error) {
    result.noticeFailure = error;
  }
  try {
    withdrawSendToken(computer, stop);
  } catch (const RelayError& error) {
    result.revokeFailure = error;
  }

  const Bytes macID = computer.identity.identityHash();
  updateInbox(support_, [&](ApproverInbox& inbox) {
    std::vector<PairedMac> current = loadPairedMacs(support_);
    std::erase_if(current,
                  [&](const PairedMac& mac) { return mac.identity.identityHash() == macID; });
    savePairedMacs(support_, current);
    std::erase_if(inbox.open, [&](const InboxRequest& r) { return r.request.macID == macID; });
  });
  return result;
}

}  // namespace quorvane
