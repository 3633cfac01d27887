#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane::relay {

// One HTTP request as the service sees it, whatever server read it.
struct RelayRequest {
  std::string method;  // "GET", "POST", ...
  std::string target;  // path and query, "/v1/mailbox/ID/messages?after=3"
  // The "Authorization" header's value, when there is one.
  std::optional<SecureBytes> authorization;
  Bytes body;
  // The client's address, for the rate limits.
  std::string clientAddress;
};

// A fetch that found nothing and waits for a message.
struct PendingFetch {
  std::string mailboxId;
  uint64_t after = 0;
};

// The service's answer to a request.
struct RelayAnswer {
  int status = 200;
  // Empty with an empty body.
  std::string contentType;
  std::string body;
  // Extra headers ("Retry-After", "Allow", "WWW-Authenticate").
  std::vector<std::pair<std::string, std::string>> headers;
  // The body carries fresh credentials: the server wipes it once written.
  bool bodyHoldsSecrets = false;
  // The route for the log and the metrics: its pattern ("/v1/mailbox/{id}/messages") or "other".
  std::string route;
  // Set for a waiting fetch that found nothing: the server holds the request and asks again
  // (RelayService::fetchNow) when the mailbox is woken, and answers an empty list at the end of
  // the wait. `status` and `body` then hold that empty answer.
  std::optional<PendingFetch> wait;
  // A failure the operator should see in the log (never a credential or a body).
  std::string logNote;
};

}  // namespace quorvane::relay
