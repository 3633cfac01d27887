#include "RelayServer/RelayRoute.h"

#include <charconv>

#include "RelayServer/RelayCredentials.h"

namespace quorvane::relay {
namespace {

struct PathShape {
  std::string_view suffix;  // after "/v1/mailbox/ID"; empty for the mailbox itself
  std::string_view pattern;
};

// Splits "a/b/c" on '/'.
std::vector<std::string_view> segments(std::string_view path) {
  std::vector<std::string_view> result;
  while (true) {
    size_t slash = path.find('/');
    result.push_back(path.substr(0, slash));
    if (slash == std::string_view::npos) break;
    path.remove_prefix(slash + 1);
  }
  return result;
}

void readQuery(std::string_view query, Route& route) {
  while (!query.empty()) {
    size_t amp = query.find('&');
    std::string_view pair = query.substr(0, amp);
    query = amp == std::string_view::npos ? std::string_view() : query.substr(amp + 1);
    size_t equals = pair.find('=');
    std::string_view name = pair.substr(0, equals);
    std::string_view value = equals == std::string_view::npos ? "" : pair.substr(equals + 1);
    const bool yes = value == "1" || value == "true";
    if (name == "ephemeral") route.ephemeral = yes;
    if (name == "push") route.push = yes;
    if (name == "wait") route.wait = yes;
    if (name == "after") {
      uint64_t number = 0;
      auto [end, error] = std::from_chars(value.data(), value.data() + value.size(), number);
      route.afterValid =
          !value.empty() && error == std::errc() && end == value.data() + value.size();
      route.after = route.afterValid ? std::optional<uint64_t>(number) : std::nullopt;
    }
  }
}

RouteMatch found(RouteKind kind, std::string_view pattern, Route route) {
  route.kind = kind;
  route.pattern = std::string(pattern);
  RouteMatch match;
  match.result = RouteMatch::Result::found;
  match.pattern = route.pattern;
  match.route = std::move(route);
  return match;
}

RouteMatch notAllowed(std::string_view pattern, std::string_view allowed) {
  RouteMatch match;
  match.result = RouteMatch::Result::methodNotAllowed;
  match.pattern = std::string(pattern);
  match.allowed = std::string(allowed);
  return match;
}

}  // namespace

RouteMatch matchRoute(std::string_view method, std::string_view target) {
  RouteMatch none;
  none.pattern = "other";
  size_t question = target.find('?');
  std::string_view path = target.substr(0, question);
  Route route;
  if (question != std::string_view::npos) readQuery(target.substr(question + 1), route);
  if (path.empty() || path.front() != '/') return none;
  // A trailing slash names the same resource ("/v1/mailbox/" is "/v1/mailbox").
  if (path.size() > 1 && path.back() == '/') path.remove_suffix(1);

  if (path == "/healthz") {
    if (method == "GET") return found(RouteKind::healthz, "/healthz", route);
    return notAllowed("/healthz", "GET");
  }
  if (path == "/metrics") {
    if (method == "GET") return found(RouteKind::metrics, "/metrics", route);
    return notAllowed("/metrics", "GET");
  }
  constexpr std::string_view kMailboxes = "/v1/mailbox";
  if (path == kMailboxes) {
    if (method == "POST") return found(RouteKind::createMailbox, "/v1/mailbox", route);
    return notAllowed("/v1/mailbox", "POST");
  }
  if (!path.starts_with(kMailboxes) || path[kMailboxes.size()] != '/') return none;
  std::vector<std::string_view> parts = segments(path.substr(kMailboxes.size() + 1));
  if (parts.size() > 2 || !isMailboxId(parts[0])) return none;
  route.mailboxId = std::string(parts[0]);
  if (parts.size() == 1) {
    if (method == "DELETE") return found(RouteKind::deleteMailbox, "/v1/mailbox/{id}", route);
    return notAllowed("/v1/mailbox/{id}", "DELETE");
  }
  if (parts[1] == "send-tokens") {
    constexpr std::string_view pattern = "/v1/mailbox/{id}/send-tokens";
    if (method == "POST") return found(RouteKind::createSendToken, pattern, route);
    if (method == "DELETE") return found(RouteKind::revokeSendToken, pattern, route);
    return notAllowed(pattern, "POST, DELETE");
  }
  if (parts[1] == "push-token") {
    constexpr std::string_view pattern = "/v1/mailbox/{id}/push-token";
    if (method == "POST") return found(RouteKind::registerPush, pattern, route);
    return notAllowed(pattern, "POST");
  }
  if (parts[1] == "messages") {
    constexpr std::string_view pattern = "/v1/mailbox/{id}/messages";
    if (method == "POST") return found(RouteKind::send, pattern, route);
    if (method == "GET") return found(RouteKind::fetch, pattern, route);
    return notAllowed(pattern, "GET, POST");
  }
  return none;
}

}  // namespace quorvane::relay
