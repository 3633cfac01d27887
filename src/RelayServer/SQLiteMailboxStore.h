#pragma once

#include <filesystem>
#include <memory>

#include "Base/Mutex.h"
#include "RelayServer/MailboxStore.h"

namespace quorvane::relay {

// The relay's store in one SQLite file (WAL journal): mailboxes with their credential hashes,
// send token hashes, push registrations and messages. One process uses a file at a time; its
// calls are serialised on one connection.
//
// A call returns once its transaction has committed, so a message answered 202 survives the
// relay being killed. The file is synced at checkpoints rather than at every commit (WAL with
// synchronous=NORMAL): a power loss may take the last moments of messages with it, which the
// senders' time-outs cover.
class SQLiteMailboxStore final : public MailboxStore {
 public:
  // Opens or creates the file (and its folder, 0700). Throws RelayServerError::store.
  explicit SQLiteMailboxStore(const std::filesystem::path& path);
  ~SQLiteMailboxStore() override;

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

 private:
  struct Database;
  Mutex mutex_;
  std::unique_ptr<Database> database_ GUARDED_BY(mutex_);
};

}  // namespace quorvane::relay
