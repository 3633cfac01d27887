#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <utility>
#include <vector>

#include "ApprovalProto/ApprovalRequestMessage.h"
#include "Base/Date.h"
#include "Base/JSONReader.h"

namespace quorvane {

// A request that another computer sent and that waits for this side's answer.
struct InboxRequest {
  ApprovalRequestMessage request;
  Date receivedAt;

  friend bool operator==(const InboxRequest&, const InboxRequest&) = default;
};

// Why a request no longer waits.
enum class ClosedReason { answered, settledElsewhere, expired };

// A request that no longer waits, remembered for a while so that a late answer gets a clear
// refusal and a message fetched again is not shown again.
struct ClosedRequest {
  Bytes requestID;
  uint64_t expiresAt = 0;  // the request's deadline, milliseconds since 1970
  ClosedReason reason = ClosedReason::answered;

  friend bool operator==(const ClosedRequest&, const ClosedRequest&) = default;
};

// A message that was dropped because it did not open or decode, kept for diagnosis.
struct InboxFailure {
  Date at;
  std::string failure;  // the QAPFailure kind's name

  friend bool operator==(const InboxFailure&, const InboxFailure&) = default;
};

// What the approving side keeps between command runs (a watch, `approver pending`, `approver
// answer` are separate processes): the relay cursor of each of its mailboxes, the requests that
// wait, the requests recently closed, and the latest dropped messages.
struct ApproverInbox {
  // Past these counts the oldest entries go, so that a flood cannot grow the file without end.
  static constexpr size_t kOpenLimit = 256;
  static constexpr size_t kClosedLimit = 4096;
  static constexpr size_t kFailuresKept = 20;
  // A closed request is remembered this long after its deadline.
  static constexpr double kClosedKeptSeconds = 600;

  // (relay base URL, mailbox id) -> the highest sequence number already handled.
  std::map<std::pair<std::string, std::string>, uint64_t> cursors;
  std::vector<InboxRequest> open;  // in arrival order
  std::vector<ClosedRequest> closed;
  std::vector<InboxFailure> failures;  // newest last

  // Adds a waiting request, dropping the oldest past kOpenLimit.
  void addOpen(InboxRequest request);
  // Closes the open request `requestID` (if it waits) or records it as closed.
  // Takes the id by value: callers often pass one that lives in `open`.
  void close(Bytes requestID, uint64_t expiresAt, ClosedReason reason);
  void recordFailure(Date at, std::string failure);
  // Closes the open requests whose deadline has been reached (now >= expiresAt) and forgets the
  // closed ones kClosedKeptSeconds past it. Returns the requests that expired now.
  std::vector<InboxRequest> sweep(Date now);

  const InboxRequest* findOpen(const Bytes& requestID) const;
  const ClosedRequest* findClosed(const Bytes& requestID) const;

  friend bool operator==(const ApproverInbox&, const ApproverInbox&) = default;
};

// JSON form, keys sorted:
//   {"closed": [{"expiresAt": ms, "reason": "answered"|"settledElsewhere"|"expired",
//                "requestID": hex}],
//    "cursors": [{"mailbox": id, "relayURL": url, "seq": n}],
//    "failures": [{"at": ISO 8601, "failure": name}],
//    "open": [{"message": base64 of the request's binary form, "receivedAt": ISO 8601}]}
// Decoding throws DecodingError for anything else: a missing key, a wrong type, a negative or
// fractional number, text that is not hex or base64, a request that does not decode, or more
// entries than the limits allow.
JSON toJSON(const ApproverInbox& inbox);
ApproverInbox decodeApproverInbox(const JSONReader& reader);

}  // namespace quorvane
