#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"
#include "Base/Date.h"

namespace quorvane::relay {

// A mailbox as the store keeps it: its credentials only as hashes (see RelayCredentials.h).
struct MailboxRecord {
  std::string id;
  Bytes secretHash;
  Bytes sendTokenHash;  // the first send token, made with the mailbox
  bool ephemeral = false;
  Date createdAt;
  // Ephemeral mailboxes end at this date; permanent ones have none.
  std::optional<Date> expiresAt;
  friend bool operator==(const MailboxRecord&, const MailboxRecord&) = default;
};

// What a credential may do with a mailbox. `none` also stands for a mailbox that does not exist
// (or has expired), so that callers cannot tell the two apart.
enum class MailboxAccess { none, owner, sender };

struct StoredMessage {
  uint64_t seq = 0;
  Bytes data;
  friend bool operator==(const StoredMessage&, const StoredMessage&) = default;
};

// A phone's push registration. Stored for the push delivery that a later version adds.
struct PushRegistration {
  std::string token;
  std::string topic;
  bool production = false;
  friend bool operator==(const PushRegistration&, const PushRegistration&) = default;
};

struct StoreCounts {
  uint64_t mailboxes = 0;
  uint64_t messages = 0;
};

// How an append ended.
struct AppendOutcome {
  enum class Result { stored, mailboxFull, noMailbox };
  Result result = Result::noMailbox;
  uint64_t seq = 0;  // when stored
};

// Called with a mailbox id whenever a message for it may have arrived through another process
// sharing the store. Runs on a thread of the store's own; must not block.
using ArrivalListener = std::function<void(const std::string& mailboxId)>;

// Where the relay keeps mailboxes, their credential hashes and messages. Implementations are safe
// to call from several threads at once. Each call is atomic and durable once it returns (an
// append that returns `stored` survives a restart). Failures of the underlying storage are thrown
// as RelayServerError::store.
//
// Sequence numbers start at 1 in each mailbox and only grow, also when messages expire and across
// restarts.
//
// Each mailbox also keeps its owner's acknowledged position: the highest seq its owner has said
// it read. Messages at or below it no longer count toward the mailbox's limit, and each records
// when it was acknowledged, so that expiry removes it a grace period later (another client of
// the same owner may still be a little behind).
class MailboxStore {
 public:
  virtual ~MailboxStore() = default;

  // Adds a new mailbox (ids are random, so a clash is a programmer error or a broken generator;
  // it is thrown as RelayServerError::store).
  virtual void createMailbox(const MailboxRecord& mailbox) = 0;
  // What `credentialHash` may do with mailbox `id` at `now`.
  virtual MailboxAccess access(std::string_view id, ByteView credentialHash, Date now) = 0;
  virtual void addSendToken(std::string_view id, ByteView tokenHash) = 0;
  // Whether the token was there to remove.
  virtual bool removeSendToken(std::string_view id, ByteView tokenHash) = 0;
  virtual void setPushRegistration(std::string_view id, const PushRegistration& registration) = 0;
  // Appends a message unless the mailbox already holds `maxMessages` not yet acknowledged.
  virtual AppendOutcome appendMessage(std::string_view id, ByteView data, bool push, Date now,
                                      size_t maxMessages) = 0;
  // The messages with seq above `after`, in order, until their data passes `maxBytes` (at least
  // one message when there is any).
  virtual std::vector<StoredMessage> messagesAfter(std::string_view id, uint64_t after,
                                                   size_t maxBytes) = 0;
  // Records that the owner has read every message up to `upTo` (no further than the last seq
  // given out), at `now`. The position never goes down: a lower `upTo` changes nothing.
  virtual void acknowledge(std::string_view id, uint64_t upTo, Date now) = 0;
  // Removes a mailbox with its tokens and messages; whether it existed.
  virtual bool deleteMailbox(std::string_view id) = 0;
  // Removes ephemeral mailboxes past their end, messages stored before `storedBefore` and
  // messages acknowledged at or before `acknowledgedUntil`.
  virtual void expire(Date now, Date storedBefore, Date acknowledgedUntil) = 0;
  virtual StoreCounts counts() = 0;
  // Registers the listener for arrivals through other processes; stores that no other process
  // shares never call it.
  virtual void setArrivalListener(ArrivalListener) {}
};

}  // namespace quorvane::relay
