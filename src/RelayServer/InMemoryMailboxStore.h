#pragma once

#include <deque>
#include <map>
#include <string>

#include "Base/Mutex.h"
#include "RelayServer/MailboxStore.h"

namespace quorvane::relay {

// A store in memory, for tests and for the layers above the store. Nothing survives the object.
class InMemoryMailboxStore final : public MailboxStore {
 public:
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

  // The push registration of a mailbox, if any (for tests).
  std::optional<PushRegistration> pushRegistration(std::string_view id);

 private:
  struct Message {
    StoredMessage stored;
    Date storedAt;
    bool push = false;
    std::optional<Date> acknowledgedAt;
  };
  struct Mailbox {
    MailboxRecord record;
    std::vector<Bytes> sendTokenHashes;
    std::optional<PushRegistration> push;
    uint64_t lastSeq = 0;
    uint64_t acknowledgedSeq = 0;
    // In seq order, so the acknowledged ones come first.
    std::deque<Message> messages;
  };
  Mailbox* find(std::string_view id) REQUIRES(mutex_);
  static std::deque<Message>::iterator firstUnacknowledged(Mailbox& mailbox);

  Mutex mutex_;
  std::map<std::string, Mailbox, std::less<>> mailboxes_ GUARDED_BY(mutex_);
};

}  // namespace quorvane::relay
