#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane::relay {

// The requests the relay answers. Paths are absolute; the mailbox id is one path segment.
enum class RouteKind {
  createMailbox,    // POST   /v1/mailbox[?ephemeral=1]
  createSendToken,  // POST   /v1/mailbox/ID/send-tokens
  revokeSendToken,  // DELETE /v1/mailbox/ID/send-tokens
  registerPush,     // POST   /v1/mailbox/ID/push-token
  send,             // POST   /v1/mailbox/ID/messages[?push=1]
  fetch,            // GET    /v1/mailbox/ID/messages?after=N[&wait=1]
  deleteMailbox,    // DELETE /v1/mailbox/ID
  healthz,          // GET    /healthz
  metrics,          // GET    /metrics
};

// A request target taken apart. `path` is what the routing saw, for the log: the route's pattern
// with "{id}" for the mailbox (never the id itself), or "other".
struct Route {
  RouteKind kind = RouteKind::healthz;
  std::string mailboxId;  // for the mailbox routes
  std::string pattern;
  // Query values, as the routes use them.
  bool ephemeral = false;
  bool push = false;
  bool wait = false;
  // The fetch cursor: nothing when "after" is missing, and `afterValid` false when it is not a
  // decimal number that fits 64 bits.
  std::optional<uint64_t> after;
  bool afterValid = true;
};

// How routing a method and target ended.
struct RouteMatch {
  enum class Result { found, notFound, methodNotAllowed };
  Result result = Result::notFound;
  Route route;
  // For methodNotAllowed: the methods the path allows, for the "Allow" header ("GET, POST").
  std::string allowed;
  // The pattern to log when nothing matched: "other".
  std::string pattern;
};

// Routes a request line's method and target ("/v1/mailbox/ID/messages?after=3&wait=1"). Never
// throws; anything it does not know is notFound. A mailbox id that is not an id (see
// isMailboxId) does not match.
RouteMatch matchRoute(std::string_view method, std::string_view target);

}  // namespace quorvane::relay
