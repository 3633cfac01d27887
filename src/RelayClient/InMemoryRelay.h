#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "Base/Mutex.h"
#include "RelayClient/RelayCursors.h"
#include "RelayClient/RelayError.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// A relay and its client in one object, in memory, for the tests of the layers above (pairing,
// the remote approval service): mailboxes with sequence numbers from 1, send tokens, push
// registrations, waiting fetches woken by a send, one set of cursors. It refuses what the real
// relay refuses with the same errors: a credential that does not fit the mailbox is
// RelayError::http(403) (never revealing whether the mailbox exists), and deleting what is gone
// succeeds. Thread-safe.
class InMemoryRelay final : public RelayTransport {
 public:
  // `waitLimit`: how long a waiting fetch is held when nothing arrives, in seconds.
  explicit InMemoryRelay(double waitLimit = 30);

  MailboxCredentials createMailbox(bool ephemeral, std::stop_token stop = {}) override;
  SecureBytes createSendToken(const MailboxCredentials& mailbox,
                              std::stop_token stop = {}) override;
  void revokeSendToken(const MailboxCredentials& mailbox, const SecureBytes& sendToken,
                       std::stop_token stop = {}) override;
  void registerPushToken(const MailboxCredentials& mailbox, const PushRegistration& registration,
                         std::stop_token stop = {}) override;
  void send(const MailboxAddress& address, const Envelope& envelope, bool push,
            std::stop_token stop = {}) override;
  std::vector<RelayMessage> fetch(const MailboxCredentials& mailbox, bool wait,
                                  std::stop_token stop = {}) override;
  void deleteMailbox(const MailboxCredentials& mailbox, std::stop_token stop = {}) override;

  // The next operations fail with these errors, one each, in order, instead of running.
  void failNext(RelayError error);
  // While set, every operation fails with RelayError::transport, as when the relay cannot be
  // reached; a waiting fetch in progress fails at once.
  void setUnreachable(bool unreachable);

  // What the relay holds, for assertions: the envelopes kept in a mailbox (none for an unknown
  // one), whether a mailbox exists and is ephemeral, its push registration, and how many sends
  // asked for a push.
  std::vector<Envelope> stored(const std::string& mailboxID) const;
  bool exists(const std::string& mailboxID) const;
  bool ephemeral(const std::string& mailboxID) const;
  std::optional<PushRegistration> pushRegistration(const std::string& mailboxID) const;
  size_t pushedSends() const;

  RelayCursors& cursors() { return cursors_; }

 private:
  struct Mailbox {
    SecureBytes secret;
    std::vector<SecureBytes> sendTokens;
    bool ephemeral = false;
    uint64_t nextSeq = 1;
    std::vector<std::pair<uint64_t, Bytes>> messages;
    std::optional<PushRegistration> push;
  };

  // Throws the first queued failure, if any.
  void failIfAsked() REQUIRES(mutex_);
  // The mailbox that `secret` owns; RelayError::http(403) otherwise.
  Mailbox& owned(const MailboxCredentials& credentials) REQUIRES(mutex_);

  const double waitLimit_;
  mutable Mutex mutex_;
  std::condition_variable_any arrived_;
  std::map<std::string, Mailbox> mailboxes_ GUARDED_BY(mutex_);
  std::deque<RelayError> failures_ GUARDED_BY(mutex_);
  size_t pushedSends_ GUARDED_BY(mutex_) = 0;
  bool unreachable_ GUARDED_BY(mutex_) = false;
  uint64_t created_ GUARDED_BY(mutex_) = 0;
  RelayCursors cursors_;
};

}  // namespace quorvane
