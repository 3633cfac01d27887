#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <thread>

#include "Base/Mutex.h"
#include "RelayServer/MailboxStore.h"

struct redisContext;
struct redisReply;

namespace quorvane::relay {

// Where a Redis server is: "redis://HOST:PORT" (the port defaults to 6379).
struct RedisAddress {
  std::string host;
  int port = 6379;
};

// Reads "redis://HOST:PORT"; throws RelayServerError::settings for anything else.
RedisAddress parseRedisURL(const std::string& url);

// The relay's store in a Redis server, so that several relay processes share one state. Keys
// begin with `prefix`:
//   PREFIX mailbox:ID   hash: secret (SHA-256), expires (ephemeral only), last_seq, acked_seq
//                       (the owner's acknowledged position), push_*
//   PREFIX tokens:ID    set of send token hashes
//   PREFIX messages:ID  sorted set scored by seq; each member is the seq (20 digits) then the data
//   PREFIX mailboxes    sorted set of ids scored by their end (permanent: +inf)
//   PREFIX ages         sorted set of "ID SEQ" scored by the time each message was stored
//   PREFIX acked        sorted set of "ID SEQ" scored by the time each message was acknowledged
// Appends, acknowledgements, deletions and expiry run as Lua scripts, atomic in Redis. Every append
// is published on the channel PREFIX arrivals with the mailbox id; a thread of the store's own
// listens there and tells the arrival listener, so that a fetch waiting on one relay process is
// woken by a send through another.
//
// Durability is the Redis server's (its append-only file, when the operator turns it on). Calls
// from several threads use a small pool of connections, each under its own lock; a broken one is
// opened again on its next use. Failures are RelayServerError::store.
class RedisMailboxStore final : public MailboxStore {
 public:
  // Connects (and fails at once when the server cannot be reached).
  explicit RedisMailboxStore(const RedisAddress& address, std::string prefix = "quorvane-relay:");
  ~RedisMailboxStore() override;
  RedisMailboxStore(const RedisMailboxStore&) = delete;
  RedisMailboxStore& operator=(const RedisMailboxStore&) = delete;

  void createMailbox(const MailboxRecord& mailbox) override;
  MailboxAccess access(std::string_view id, ByteView credentialHash, Date now) override;
  void addSendToken(std::string_view id, ByteView tokenHash) override;
  bool removeSendToken(std::string_view id, ByteView tokenHash) override;
  void setPushRegistration(std::string_view id, const PushRegistration& registration) override;
  AppendOutcome appendMessage(std::string_view id, ByteView data, bool push, Date now,
                              size_t maxMessages) override;
  std::vector<StoredMessage> messagesAfter(std::string_view id, uint64_t after,
                                           size_t maxBytes) override;
  void acknowledge(std::string_view id, uint64_t upTo, Date now) override;
  bool deleteMailbox(std::string_view id) override;
  void expire(Date now, Date storedBefore, Date acknowledgedUntil) override;
  StoreCounts counts() override;
  // Starts the thread that listens for arrivals; the listener runs on it.
  void setArrivalListener(ArrivalListener listener) override;

  struct ReplyDeleter {
    void operator()(void* reply) const;
  };
  using Reply = std::unique_ptr<::redisReply, ReplyDeleter>;

 private:
  struct ContextDeleter {
    void operator()(redisContext* context) const;
  };
  using Context = std::unique_ptr<redisContext, ContextDeleter>;

  struct Connection {
    Mutex mutex;
    Context context GUARDED_BY(mutex);
  };
  // A Lua script with the SHA-1 that Redis knows it by.
  struct Script {
    explicit Script(const char* text);
    std::string text, sha1;
  };

  Context connect() const;
  // Runs one command on the next connection of the pool: its reply, errors included.
  Reply send(const std::vector<std::string>& arguments);
  // As `send`, but an error reply fails.
  Reply command(const std::vector<std::string>& arguments);
  // Runs a script with "KEY COUNT, KEYS..., ARGS..." as `arguments`.
  Reply script(const Script& script, std::vector<std::string> arguments);
  std::string key(const char* kind, std::string_view id = {}) const;
  void listen(ArrivalListener listener);

  const RedisAddress address_;
  const std::string prefix_;
  std::vector<Connection> connections_;
  std::atomic<size_t> next_{0};

  std::atomic<bool> stopping_{false};
  std::atomic<int> subscriberSocket_{-1};
  std::thread subscriber_;
};

}  // namespace quorvane::relay
