#include "RelayClient/InMemoryRelay.h"

#include <algorithm>
#include <chrono>

#include "Base/Base64.h"
#include "Base/Hex.h"
#include "Base/Random.h"
#include "RelayClient/RelayAnswers.h"

namespace quorvane {
namespace {

constexpr int kRefused = 403;
constexpr const char* kUnreachableDescription = "the in-memory relay is switched off";

SecureBytes randomToken() { return SecureBytes(bytesOf(hexEncode(crypto::randomBytes(32)))); }

}  // namespace

InMemoryRelay::InMemoryRelay(double waitLimit) : waitLimit_(waitLimit) {}

void InMemoryRelay::failIfAsked() {
  if (unreachable_) throw RelayError::transport(kUnreachableDescription);
  if (failures_.empty()) return;
  RelayError error = failures_.front();
  failures_.pop_front();
  throw error;
}

InMemoryRelay::Mailbox& InMemoryRelay::owned(const MailboxCredentials& credentials) {
  auto found = mailboxes_.find(credentials.id);
  if (found == mailboxes_.end() || !(found->second.secret == credentials.secret))
    throw RelayError::http(kRefused);
  return found->second;
}

MailboxCredentials InMemoryRelay::createMailbox(bool ephemeral, std::stop_token) {
  MutexLock lock(mutex_);
  failIfAsked();
  MailboxCredentials credentials{"mailbox-" + std::to_string(++created_), randomToken(),
                                 randomToken()};
  Mailbox& mailbox = mailboxes_[credentials.id];
  mailbox.secret = credentials.secret;
  mailbox.sendTokens = {credentials.sendToken};
  mailbox.ephemeral = ephemeral;
  return credentials;
}

SecureBytes InMemoryRelay::createSendToken(const MailboxCredentials& credentials, std::stop_token) {
  MutexLock lock(mutex_);
  failIfAsked();
  SecureBytes token = randomToken();
  owned(credentials).sendTokens.push_back(token);
  return token;
}

void InMemoryRelay::revokeSendToken(const MailboxCredentials& credentials,
                                    const SecureBytes& sendToken, std::stop_token) {
  MutexLock lock(mutex_);
  failIfAsked();
  std::erase(owned(credentials).sendTokens, sendToken);
}

void InMemoryRelay::registerPushToken(const MailboxCredentials& credentials,
                                      const PushRegistration& registration, std::stop_token) {
  MutexLock lock(mutex_);
  failIfAsked();
  owned(credentials).push = registration;
}

void InMemoryRelay::send(const MailboxAddress& address, const Envelope& envelope, bool push,
                         std::stop_token) {
  {
    MutexLock lock(mutex_);
    failIfAsked();
    auto found = mailboxes_.find(address.id);
    if (found == mailboxes_.end() ||
        std::ranges::find(found->second.sendTokens, address.sendToken) ==
            found->second.sendTokens.end())
      throw RelayError::http(kRefused);
    Mailbox& mailbox = found->second;
    mailbox.messages.emplace_back(mailbox.nextSeq++, envelope.encode());
    if (push) ++pushedSends_;
  }
  arrived_.notify_all();
}

std::vector<RelayMessage> InMemoryRelay::fetch(const MailboxCredentials& credentials, bool wait,
                                               std::stop_token stop) {
  const uint64_t after = cursors_.read(credentials.id);
  std::vector<FetchedItem> items;
  {
    MutexLock lock(mutex_);
    failIfAsked();
    owned(credentials);
    // The mailbox may be deleted while the fetch waits, so it is looked up again each time.
    auto newer = [&]() REQUIRES(mutex_) {
      auto found = mailboxes_.find(credentials.id);
      return unreachable_ || (found != mailboxes_.end() && !found->second.messages.empty() &&
                              found->second.messages.back().first > after);
    };
    if (wait) {
      const auto deadline =
          std::chrono::steady_clock::now() + std::chrono::duration<double>(waitLimit_);
      arrived_.wait_until(mutex_, stop, deadline, newer);
      if (stop.stop_requested()) throw RelayError::transport(kRelayCancelledDescription);
      if (unreachable_) throw RelayError::transport(kUnreachableDescription);
    }
    Mailbox& mailbox = owned(credentials);
    for (const auto& [seq, bytes] : mailbox.messages)
      if (seq > after) items.push_back({seq, base64Encode(bytes)});
  }
  return acceptFetchedItems(items, cursors_, credentials.id);
}

void InMemoryRelay::deleteMailbox(const MailboxCredentials& credentials, std::stop_token) {
  {
    MutexLock lock(mutex_);
    failIfAsked();
    auto found = mailboxes_.find(credentials.id);
    if (found == mailboxes_.end()) return;  // already gone: the relay's 404, which is success
    if (!(found->second.secret == credentials.secret)) throw RelayError::http(kRefused);
    mailboxes_.erase(found);
  }
  arrived_.notify_all();
}

void InMemoryRelay::failNext(RelayError error) {
  MutexLock lock(mutex_);
  failures_.push_back(std::move(error));
}

void InMemoryRelay::setUnreachable(bool unreachable) {
  {
    MutexLock lock(mutex_);
    unreachable_ = unreachable;
  }
  arrived_.notify_all();
}

std::vector<Envelope> InMemoryRelay::stored(const std::string& mailboxID) const {
  MutexLock lock(mutex_);
  std::vector<Envelope> envelopes;
  if (auto found = mailboxes_.find(mailboxID); found != mailboxes_.end())
    for (const auto& [seq, bytes] : found->second.messages)
      if (auto envelope = Envelope::decode(bytes)) envelopes.push_back(*envelope);
  return envelopes;
}

bool InMemoryRelay::exists(const std::string& mailboxID) const {
  MutexLock lock(mutex_);
  return mailboxes_.contains(mailboxID);
}

bool InMemoryRelay::ephemeral(const std::string& mailboxID) const {
  MutexLock lock(mutex_);
  auto found = mailboxes_.find(mailboxID);
  return found != mailboxes_.end() && found->second.ephemeral;
}

std::optional<PushRegistration> InMemoryRelay::pushRegistration(
    const std::string& mailboxID) const {
  MutexLock lock(mutex_);
  auto found = mailboxes_.find(mailboxID);
  return found == mailboxes_.end() ? std::nullopt : found->second.push;
}

size_t InMemoryRelay::pushedSends() const {
  MutexLock lock(mutex_);
  return pushedSends_;
}

}  // namespace quorvane
