#include "RelayServer/InMemoryMailboxStore.h"

#include <algorithm>

#include "RelayServer/RelayCredentials.h"
#include "RelayServer/RelayServerError.h"

namespace quorvane::relay {

InMemoryMailboxStore::Mailbox* InMemoryMailboxStore::find(std::string_view id) {
  auto found = mailboxes_.find(id);
  return found == mailboxes_.end() ? nullptr : &found->second;
}

std::deque<InMemoryMailboxStore::Message>::iterator InMemoryMailboxStore::firstUnacknowledged(
    Mailbox& mailbox) {
  return std::partition_point(
      mailbox.messages.begin(), mailbox.messages.end(),
      [&](const Message& message) { return message.stored.seq <= mailbox.acknowledgedSeq; });
}

void InMemoryMailboxStore::createMailbox(const MailboxRecord& mailbox) {
  MutexLock lock(mutex_);
  if (mailboxes_.contains(mailbox.id))
    throw RelayServerError(RelayServerErrorKind::store, "mailbox id already in use");
  Mailbox& added = mailboxes_[mailbox.id];
  added.record = mailbox;
  added.sendTokenHashes.push_back(mailbox.sendTokenHash);
}

MailboxAccess InMemoryMailboxStore::access(std::string_view id, ByteView credentialHash, Date now) {
  MutexLock lock(mutex_);
  Mailbox* mailbox = find(id);
  if (!mailbox) return MailboxAccess::none;
  if (mailbox->record.expiresAt && now >= *mailbox->record.expiresAt) return MailboxAccess::none;
  if (sameCredentialHash(mailbox->record.secretHash, credentialHash)) return MailboxAccess::owner;
  bool sender = false;
  for (const Bytes& token : mailbox->sendTokenHashes)
    sender |= sameCredentialHash(token, credentialHash);
  return sender ? MailboxAccess::sender : MailboxAccess::none;
}

void InMemoryMailboxStore::addSendToken(std::string_view id, ByteView tokenHash) {
  MutexLock lock(mutex_);
  if (Mailbox* mailbox = find(id))
    mailbox->sendTokenHashes.emplace_back(tokenHash.begin(), tokenHash.end());
}

bool InMemoryMailboxStore::removeSendToken(std::string_view id, ByteView tokenHash) {
  MutexLock lock(mutex_);
  Mailbox* mailbox = find(id);
  if (!mailbox) return false;
  auto& tokens = mailbox->sendTokenHashes;
  auto found = std::find_if(tokens.begin(), tokens.end(), [&](const Bytes& token) {
    return sameCredentialHash(token, tokenHash);
  });
  if (found == tokens.end()) return false;
  tokens.erase(found);
  return true;
}

void InMemoryMailboxStore::setPushRegistration(std::string_view id,
                                               const PushRegistration& registration) {
  MutexLock lock(mutex_);
  if (Mailbox* mailbox = find(id)) mailbox->push = registration;
}

std::optional<PushRegistration> InMemoryMailboxStore::pushRegistration(std::string_view id) {
  MutexLock lock(mutex_);
  Mailbox* mailbox = find(id);
  return mailbox ? mailbox->push : std::nullopt;
}

AppendOutcome InMemoryMailboxStore::appendMessage(std::string_view id, ByteView data, bool push,
                                                  Date now, size_t maxMessages) {
  MutexLock lock(mutex_);
  Mailbox* mailbox = find(id);
  if (!mailbox) return {AppendOutcome::Result::noMailbox, 0};
  const auto unacknowledged = mailbox->messages.end() - firstUnacknowledged(*mailbox);
  if (static_cast<size_t>(unacknowledged) >= maxMessages)
    return {AppendOutcome::Result::mailboxFull, 0};
  uint64_t seq = ++mailbox->lastSeq;
  mailbox->messages.push_back({{seq, Bytes(data.begin(), data.end())}, now, push, std::nullopt});
  return {AppendOutcome::Result::stored, seq};
}

std::vector<StoredMessage> InMemoryMailboxStore::messagesAfter(std::string_view id, uint64_t after,
                                                               size_t maxBytes) {
  MutexLock lock(mutex_);
  std::vector<StoredMessage> result;
  Mailbox* mailbox = find(id);
  if (!mailbox) return result;
  size_t bytes = 0;
  for (const Message& message : mailbox->messages) {
    if (message.stored.seq <= after) continue;
    if (!result.empty() && bytes + message.stored.data.size() > maxBytes) break;
    bytes += message.stored.data.size();
    result.push_back(message.stored);
  }
  return result;
}

void InMemoryMailboxStore::acknowledge(std::string_view id, uint64_t upTo, Date now) {
  MutexLock lock(mutex_);
  Mailbox* mailbox = find(id);
  if (!mailbox) return;
  upTo = std::min(upTo, mailbox->lastSeq);
  if (upTo <= mailbox->acknowledgedSeq) return;
  for (auto it = firstUnacknowledged(*mailbox);
       it != mailbox->messages.end() && it->stored.seq <= upTo; ++it)
    it->acknowledgedAt = now;
  mailbox->acknowledgedSeq = upTo;
}

bool InMemoryMailboxStore::deleteMailbox(std::string_view id) {
  MutexLock lock(mutex_);
  auto found = mailboxes_.find(id);
  if (found == mailboxes_.end()) return false;
  mailboxes_.erase(found);
  return true;
}

void InMemoryMailboxStore::expire(Date now, Date storedBefore, Date acknowledgedUntil) {
  MutexLock lock(mutex_);
  for (auto it = mailboxes_.begin(); it != mailboxes_.end();) {
    Mailbox& mailbox = it->second;
    if (mailbox.record.expiresAt && now >= *mailbox.record.expiresAt) {
      it = mailboxes_.erase(it);
      continue;
    }
    // Both times grow with seq, so whatever is due sits at the front.
    auto due = [&](const Message& message) {
      return message.storedAt < storedBefore ||
             (message.acknowledgedAt && *message.acknowledgedAt <= acknowledgedUntil);
    };
    while (!mailbox.messages.empty() && due(mailbox.messages.front())) mailbox.messages.pop_front();
    ++it;
  }
}

StoreCounts InMemoryMailboxStore::counts() {
  MutexLock lock(mutex_);
  StoreCounts counts;
  counts.mailboxes = mailboxes_.size();
  for (const auto& [id, mailbox] : mailboxes_) counts.messages += mailbox.messages.size();
  return counts;
}

}  // namespace quorvane::relay
