#pragma once

#include <cstdint>
#include <stop_token>
#include <string>
#include <vector>

#include "ApprovalProto/Envelope.h"
#include "Base/SecureBytes.h"
#include "RelayClient/MailboxCredentials.h"

namespace quorvane {

// One message fetched from a mailbox, with the relay's sequence number.
struct RelayMessage {
  uint64_t seq = 0;
  Envelope envelope;

  friend bool operator==(const RelayMessage&, const RelayMessage&) = default;
};

// What a device registers so that the relay can wake it through its platform's push service.
struct PushRegistration {
  std::string token;        // the device's push token
  std::string topic;        // the push topic of the approving app
  bool production = false;  // the production push environment (else the development one)

  friend bool operator==(const PushRegistration&, const PushRegistration&) = default;
};

// The relay as the rest of the system uses it: mailboxes of opaque messages, each an Envelope.
// RelayClient speaks to a real relay over HTTPS; InMemoryRelay stands in for it in tests of the
// layers above. Every operation throws RelayError and nothing else; a stop request on `stop` ends
// an operation early with RelayError::transport(kRelayCancelledDescription). Implementations may
// be used from several threads at once.
class RelayTransport {
 public:
  virtual ~RelayTransport() = default;

  // A new mailbox; an ephemeral one is kept by the relay only for a short while (pairing).
  virtual MailboxCredentials createMailbox(bool ephemeral, std::stop_token stop = {}) = 0;
  // A further send token for the owner's mailbox, to hand to one more peer.
  virtual SecureBytes createSendToken(const MailboxCredentials& mailbox,
                                      std::stop_token stop = {}) = 0;
  // Withdraws a send token; one the relay no longer knows counts as withdrawn.
  virtual void revokeSendToken(const MailboxCredentials& mailbox, const SecureBytes& sendToken,
                               std::stop_token stop = {}) = 0;
  virtual void registerPushToken(const MailboxCredentials& mailbox,
                                 const PushRegistration& registration,
                                 std::stop_token stop = {}) = 0;
  // Posts `envelope` into the mailbox at `address`; with `push`, the recipient is woken.
  virtual void send(const MailboxAddress& address, const Envelope& envelope, bool push,
                    std::stop_token stop = {}) = 0;
  // The messages after this client's cursor for the mailbox, in the relay's order; items that do
  // not decode to an envelope are left out but still move the cursor. With `wait`, the relay
  // holds the request until a message arrives or its own wait ends (then the list is empty).
  virtual std::vector<RelayMessage> fetch(const MailboxCredentials& mailbox, bool wait,
                                          std::stop_token stop = {}) = 0;
  // Deletes the mailbox; one the relay no longer knows counts as deleted.
  virtual void deleteMailbox(const MailboxCredentials& mailbox, std::stop_token stop = {}) = 0;
};

}  // namespace quorvane
