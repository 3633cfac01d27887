#include "RelayServer/RelayService.h"

#include <nlohmann/json.hpp>

#include "Base/Base64.h"
#include "RelayServer/RelayCredentials.h"
#include "RelayServer/RelayServerError.h"

namespace quorvane::relay {
namespace {

constexpr const char* kJSON = "application/json";

RelayAnswer jsonAnswer(int status, const nlohmann::json& body) {
  RelayAnswer answer;
  answer.status = status;
  answer.contentType = kJSON;
  answer.body = body.dump();
  return answer;
}

RelayAnswer emptyAnswer(int status) {
  RelayAnswer answer;
  answer.status = status;
  return answer;
}

RelayAnswer tooManyRequests(int retryAfterSeconds, const std::string& text) {
  RelayAnswer answer = errorAnswer(429, text);
  answer.headers.emplace_back("Retry-After", std::to_string(retryAfterSeconds));
  return answer;
}

RelayAnswer messagesAnswer(const std::vector<StoredMessage>& messages) {
  nlohmann::json items = nlohmann::json::array();
  for (const StoredMessage& message : messages)
    items.push_back({{"seq", message.seq}, {"data", base64Encode(message.data)}});
  return jsonAnswer(200, {{"messages", std::move(items)}});
}

// The parsed JSON object of a request body, or nothing when it is not one.
std::optional<nlohmann::json> jsonObject(const Bytes& body) {
  nlohmann::json value = nlohmann::json::parse(body.begin(), body.end(), nullptr, false);
  if (value.is_discarded() || !value.is_object()) return std::nullopt;
  return value;
}

// A string member of at most `maxLength` bytes, or nothing.
std::optional<std::string> stringMember(const nlohmann::json& object, const char* key,
                                        size_t maxLength) {
  auto found = object.find(key);
  if (found == object.end() || !found->is_string()) return std::nullopt;
  const std::string& text = found->get_ref<const std::string&>();
  if (text.empty() || text.size() > maxLength) return std::nullopt;
  return text;
}

// {"token": TEXT, "topic": TEXT, "production": BOOL}, or nothing.
std::optional<PushRegistration> pushRegistrationOf(const Bytes& body) {
  std::optional<nlohmann::json> object = jsonObject(body);
  if (!object) return std::nullopt;
  std::optional<std::string> token = stringMember(*object, "token", kMaxPushFieldLength);
  std::optional<std::string> topic = stringMember(*object, "topic", kMaxPushFieldLength);
  auto production = object->find("production");
  if (!token || !topic || production == object->end() || !production->is_boolean())
    return std::nullopt;
  return PushRegistration{*token, *topic, production->get<bool>()};
}

// What each mailbox route needs the credential to be.
MailboxAccess neededAccess(RouteKind kind) {
  return kind == RouteKind::send ? MailboxAccess::sender : MailboxAccess::owner;
}

}  // namespace

RelayAnswer errorAnswer(int status, const std::string& text) {
  return jsonAnswer(status, {{"error", text}});
}

RelayService::RelayService(MailboxStore& store, WaitingFetches& waiting, const RelayLimits& limits)
    : store_(store),
      waiting_(waiting),
      limits_(limits),
      creations_(limits.creationsPerMinute, limits.maxTrackedAddresses),
      sends_(limits.sendsPerMinute, limits.maxTrackedAddresses) {}

RelayAnswer RelayService::handle(const RelayRequest& request, Date now) {
  RouteMatch match = matchRoute(request.method, request.target);
  RelayAnswer answer;
  switch (match.result) {
    case RouteMatch::Result::notFound: answer = errorAnswer(404, "not found"); break;
    case RouteMatch::Result::methodNotAllowed:
      answer = errorAnswer(405, "method not allowed");
      answer.headers.emplace_back("Allow", match.allowed);
      break;
    case RouteMatch::Result::found: try { answer = route(request, match.route, now);
      } catch (const std::exception& error) {
        answer = errorAnswer(503, "the relay's store is unavailable");
        answer.logNote = error.what();
      }
      break;
  }
  answer.route = match.pattern;
  return answer;
}

RelayAnswer RelayService::route(const RelayRequest& request, const Route& route, Date now) {
  switch (route.kind) {
    case RouteKind::healthz: return jsonAnswer(200, {{"status", "ok"}});
    case RouteKind::metrics: return metricsAnswer();
    case RouteKind::createMailbox: return createMailbox(route, request, now);
    default: break;
  }
  // Sends are limited before the credential is looked at, so the limit says nothing of it.
  if (route.kind == RouteKind::send) {
    if (auto wait = sends_.take(request.clientAddress, now))
      return tooManyRequests(*wait, "too many messages from this address");
  }
  std::optional<SecureBytes> credential =
      request.authorization ? bearerCredential(request.authorization->text()) : std::nullopt;
  if (!credential) {
    RelayAnswer answer = errorAnswer(401, "a bearer credential is needed");
    answer.headers.emplace_back("WWW-Authenticate", "Bearer");
    return answer;
  }
  const Bytes hash = credentialHash(*credential);
  if (store_.access(route.mailboxId, hash, now) != neededAccess(route.kind))
    return errorAnswer(404, "no such mailbox");

  switch (route.kind) {
    case RouteKind::createSendToken: {
      SecureBytes token = newCredential();
      store_.addSendToken(route.mailboxId, credentialHash(token));
      RelayAnswer answer = jsonAnswer(201, {{"send_token", std::string(token.text())}});
      answer.bodyHoldsSecrets = true;
      return answer;
    }
    case RouteKind::revokeSendToken: {
      std::optional<nlohmann::json> body = jsonObject(request.body);
      std::optional<std::string> token =
          body ? stringMember(*body, "send_token", kMaxCredentialLength) : std::nullopt;
      if (!token) return errorAnswer(400, "the body must be {\"send_token\": TOKEN}");
      SecureBytes tokenBytes;
      tokenBytes.append(*token);
      secureWipe(token->data(), token->size());
      return store_.removeSendToken(route.mailboxId, credentialHash(tokenBytes))
                 ? emptyAnswer(204)
                 : errorAnswer(404, "no such send token");
    }
    case RouteKind::registerPush: {
      std::optional<PushRegistration> registration = pushRegistrationOf(request.body);
      if (!registration)
        return errorAnswer(400,
                           "the body must be {\"token\": TEXT, \"topic\": TEXT, "
                           "\"production\": true|false}");
      store_.setPushRegistration(route.mailboxId, *registration);
      return emptyAnswer(204);
    }
    case RouteKind::send: return send(route, request, now);
    case RouteKind::fetch: return fetch(route, now);
    case RouteKind::deleteMailbox: {
      const bool existed = store_.deleteMailbox(route.mailboxId);
      waiting_.wake(route.mailboxId);
      return existed ? emptyAnswer(204) : errorAnswer(404, "no such mailbox");
    }
    default: return errorAnswer(404, "not found");
  }
}

RelayAnswer RelayService::createMailbox(const Route& route, const RelayRequest& request, Date now) {
  if (auto wait = creations_.take(request.clientAddress, now))
    return tooManyRequests(*wait, "too many new mailboxes from this address");
  SecureBytes secret = newCredential();
  SecureBytes sendToken = newCredential();
  MailboxRecord record;
  record.id = newMailboxId();
  record.secretHash = credentialHash(secret);
  record.sendTokenHash = credentialHash(sendToken);
  record.ephemeral = route.ephemeral;
  record.createdAt = now;
  if (route.ephemeral) record.expiresAt = now + kEphemeralMailboxLifetimeSeconds;
  store_.createMailbox(record);
  RelayAnswer answer = jsonAnswer(201, {{"id", record.id},
                                        {"secret", std::string(secret.text())},
                                        {"send_token", std::string(sendToken.text())}});
  answer.bodyHoldsSecrets = true;
  return answer;
}

RelayAnswer RelayService::send(const Route& route, const RelayRequest& request, Date now) {
  if (request.body.empty()) return errorAnswer(400, "a message must not be empty");
  if (request.body.size() > kMaxBodyBytes) return errorAnswer(413, "the message is too large");
  const uint8_t kind = request.body.front();
  if (kind < kFirstEnvelopeKind || kind > kLastEnvelopeKind)
    return errorAnswer(400, "a message must begin with an envelope kind from 1 to 8");
  AppendOutcome outcome = store_.appendMessage(route.mailboxId, request.body, route.push, now,
                                               limits_.maxMessagesPerMailbox);
  switch (outcome.result) {
    case AppendOutcome::Result::noMailbox: return errorAnswer(404, "no such mailbox");
    case AppendOutcome::Result::mailboxFull: return tooManyRequests(60, "the mailbox is full");
    case AppendOutcome::Result::stored: break;
  }
  waiting_.wake(route.mailboxId);
  return emptyAnswer(202);
}

RelayAnswer RelayService::fetch(const Route& route, Date now) {
  if (!route.afterValid) return errorAnswer(400, "after must be a decimal number");
  // Only the owner gets here, and owners read forward: a cursor says everything up to it has
  // been read, so those messages stop taking room in the mailbox.
  const uint64_t after = route.after.value_or(0);
  if (after > 0) store_.acknowledge(route.mailboxId, after, now);
  RelayAnswer answer = fetchNow({route.mailboxId, after});
  if (!route.wait) answer.wait.reset();
  return answer;
}

RelayAnswer RelayService::fetchNow(const PendingFetch& pending) {
  try {
    std::vector<StoredMessage> messages =
        store_.messagesAfter(pending.mailboxId, pending.after, kMaxFetchAnswerBytes);
    RelayAnswer answer = messagesAnswer(messages);
    if (messages.empty()) answer.wait = pending;
    return answer;
  } catch (const std::exception& error) {
    RelayAnswer answer = errorAnswer(503, "the relay's store is unavailable");
    answer.logNote = error.what();
    return answer;
  }
}

RelayAnswer RelayService::metricsAnswer() {
  StoreCounts counts = store_.counts();
  RelayAnswer answer;
  answer.status = 200;
  answer.contentType = "text/plain; version=0.0.4";
  answer.body = metrics_.prometheusText({waiting_.count(), counts.mailboxes, counts.messages});
  return answer;
}

void RelayService::expire(Date now) {
  store_.expire(now, now - limits_.messageLifetimeSeconds,
                now - limits_.acknowledgedLifetimeSeconds);
}

}  // namespace quorvane::relay
