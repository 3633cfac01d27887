#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "ApprovalProto/Envelope.h"
#include "Base/SecureBytes.h"
#include "RelayClient/MailboxCredentials.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// How long each kind of request may take from start to end, in seconds. A waiting fetch is held
// by the relay for up to its own wait (30 s by default), so it gets longer than the others.
struct RelayTimeouts {
  double request = 15;
  double waitingFetch = 40;
  double health = 8;

  friend bool operator==(const RelayTimeouts&, const RelayTimeouts&) = default;
};

// One request to the relay, before it meets a network: what every operation sends and which
// answers it takes. Requests carry no Content-Type header.
struct RelayRequest {
  std::string method;  // "GET", "POST" or "DELETE"
  std::string path;    // below the base URL, with its query ("v1/mailbox?ephemeral=1")
  std::optional<SecureBytes> bearer;  // sent as "Authorization: Bearer " and the credential
  std::optional<SecureBytes> body;    // nothing: the request has no body
  std::set<int> accepted;             // the statuses that count as success; empty: any
  double timeout = 15;                // seconds
};

// The requests of the relay's mailbox API. Mailbox ids are percent-encoded as path components.
namespace relay_requests {

RelayRequest createMailbox(bool ephemeral, const RelayTimeouts& timeouts);
RelayRequest createSendToken(const MailboxCredentials& mailbox, const RelayTimeouts& timeouts);
RelayRequest revokeSendToken(const MailboxCredentials& mailbox, const SecureBytes& sendToken,
                             const RelayTimeouts& timeouts);
RelayRequest registerPushToken(const MailboxCredentials& mailbox,
                               const PushRegistration& registration, const RelayTimeouts& timeouts);
RelayRequest send(const MailboxAddress& address, const Envelope& envelope, bool push,
                  const RelayTimeouts& timeouts);
RelayRequest fetch(const MailboxCredentials& mailbox, uint64_t after, bool wait,
                   const RelayTimeouts& timeouts);
RelayRequest deleteMailbox(const MailboxCredentials& mailbox, const RelayTimeouts& timeouts);
// The health request: "healthz" below the base URL; any status is an answer.
RelayRequest health(const RelayTimeouts& timeouts);

}  // namespace relay_requests

// `text` with every byte outside A-Z a-z 0-9 - . _ ~ written as %XX, so that it stays one
// path component.
std::string percentEncodedComponent(std::string_view text);

}  // namespace quorvane
