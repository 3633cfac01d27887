#include "RelayServer/RedisMailboxStore.h"

#include <hiredis/hiredis.h>
#include <sys/socket.h>

#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "Base/Hex.h"
#include "Crypto/Hash.h"
#include "RelayServer/RelayCredentials.h"
#include "RelayServer/RelayServerError.h"

namespace quorvane::relay {
namespace {

constexpr int kSeqDigits = 20;
constexpr int kConnectTimeoutSeconds = 5;
// A command that takes longer fails (the request gets 503) instead of holding a serving thread.
constexpr int kCommandTimeoutSeconds = 5;
// Connections to the server, used in turn, so that serving threads do not queue behind one.
constexpr size_t kConnections = 4;
// Entries one expiry run removes at most, so that a run never holds Redis for long.
constexpr int kExpiryBatch = 10000;

// KEYS: mailbox, tokens. ARGV: credential hash. Returns the secret hash, the end ("" for a
// permanent mailbox) and whether the credential is a send token; an empty array without mailbox.
constexpr const char* kAccessScript = R"lua(
local fields = redis.call('HMGET', KEYS[1], 'secret', 'expires')
if not fields[1] then return {} end
return {fields[1], fields[2] or '', redis.call('SISMEMBER', KEYS[2], ARGV[1])}
)lua";

// KEYS: mailbox, messages, ages, channel. ARGV: id, data, now, max messages, push (0/1).
// Returns the new seq, -1 without the mailbox, -2 when it is full.
constexpr const char* kAppendScript = R"lua(
if redis.call('EXISTS', KEYS[1]) == 0 then return -1 end
local acked = redis.call('HGET', KEYS[1], 'acked_seq') or '0'
if redis.call('ZCOUNT', KEYS[2], '(' .. acked, '+inf') >= tonumber(ARGV[4]) then return -2 end
local seq = redis.call('HINCRBY', KEYS[1], 'last_seq', 1)
if ARGV[5] == '1' then redis.call('HINCRBY', KEYS[1], 'push_requests', 1) end
redis.call('ZADD', KEYS[2], seq, string.format('%020d', seq) .. ARGV[2])
redis.call('ZADD', KEYS[3], ARGV[3], ARGV[1] .. ' ' .. seq)
redis.call('PUBLISH', KEYS[4], ARGV[1])
return seq
)lua";

// KEYS: mailbox, messages, acked. ARGV: id, position, now. Raises the acknowledged position to
// the position (at most the last seq) and records the time for each message it passes. A
// mailbox's messages have every seq from its oldest to its last (expiry removes the oldest
// first), so the messages passed are counted from the first one above the old position.
constexpr const char* kAcknowledgeScript = R"lua(
local fields = redis.call('HMGET', KEYS[1], 'last_seq', 'acked_seq')
if not fields[1] then return 0 end
local old = tonumber(fields[2] or '0')
local position = math.min(tonumber(ARGV[2]), tonumber(fields[1]))
if position <= old then return 0 end
local first = redis.call('ZRANGEBYSCORE', KEYS[2], '(' .. old, position,
                        'WITHSCORES', 'LIMIT', 0, 1)
if #first == 2 then
  for seq = tonumber(first[2]), position do
    redis.call('ZADD', KEYS[3], ARGV[3], ARGV[1] .. ' ' .. seq)
  end
end
redis.call('HSET', KEYS[1], 'acked_seq', string.format('%d', position))
return 1
)lua";

// KEYS: mailbox, tokens, messages, mailboxes, ages, acked. ARGV: id. Returns 1 when the mailbox
// existed.
constexpr const char* kDeleteScript = R"lua(
local existed = redis.call('EXISTS', KEYS[1])
for _, member in ipairs(redis.call('ZRANGE', KEYS[3], 0, -1)) do
  local entry = ARGV[1] .. ' ' .. tonumber(string.sub(member, 1, 20))
  redis.call('ZREM', KEYS[5], entry)
  redis.call('ZREM', KEYS[6], entry)
end
redis.call('DEL', KEYS[1], KEYS[2], KEYS[3])
redis.call('ZREM', KEYS[4], ARGV[1])
return existed
)lua";

// KEYS: mailboxes, ages, acked. ARGV: prefix, now, stored before, batch, acknowledged until.
// An ended mailbox's messages leave the ages and acked sets with it, so that the count of
// messages stored stays right.
constexpr const char* kExpireScript = R"lua(
local function removeMessage(entry)
  local space = string.find(entry, ' ', 1, true)
  local id = string.sub(entry, 1, space - 1)
  local seq = string.sub(entry, space + 1)
  redis.call('ZREMRANGEBYSCORE', ARGV[1] .. 'messages:' .. id, seq, seq)
  redis.call('ZREM', KEYS[2], entry)
  redis.call('ZREM', KEYS[3], entry)
end
local ended = redis.call('ZRANGEBYSCORE', KEYS[1], '-inf', ARGV[2], 'LIMIT', 0, ARGV[4])
for _, id in ipairs(ended) do
  local messages = ARGV[1] .. 'messages:' .. id
  for _, member in ipairs(redis.call('ZRANGE', messages, 0, -1)) do
    local entry = id .. ' ' .. tonumber(string.sub(member, 1, 20))
    redis.call('ZREM', KEYS[2], entry)
    redis.call('ZREM', KEYS[3], entry)
  end
  redis.call('DEL', ARGV[1] .. 'mailbox:' .. id, ARGV[1] .. 'tokens:' .. id, messages)
  redis.call('ZREM', KEYS[1], id)
end
local old = redis.call('ZRANGEBYSCORE', KEYS[2], '-inf', '(' .. ARGV[3], 'LIMIT', 0, ARGV[4])
for _, entry in ipairs(old) do removeMessage(entry) end
local read = redis.call('ZRANGEBYSCORE', KEYS[3], '-inf', ARGV[5], 'LIMIT', 0, ARGV[4])
for _, entry in ipairs(read) do removeMessage(entry) end
return #ended + #old + #read
)lua";

std::string text(ByteView bytes) { return std::string(bytes.begin(), bytes.end()); }

std::string number(double value) {
  char buffer[64];
  std::snprintf(buffer, sizeof buffer, "%.3f", value);
  return buffer;
}

[[noreturn]] void fail(const std::string& what) {
  throw RelayServerError(RelayServerErrorKind::store, "Redis: " + what);
}

}  // namespace

RedisAddress parseRedisURL(const std::string& url) {
  constexpr std::string_view kScheme = "redis://";
  std::string_view rest(url);
  if (!rest.starts_with(kScheme))
    throw RelayServerError(RelayServerErrorKind::settings,
                           "--redis needs redis://HOST:PORT, not " + url);
  rest.remove_prefix(kScheme.size());
  if (!rest.empty() && rest.back() == '/') rest.remove_suffix(1);
  RedisAddress address;
  size_t colon = rest.rfind(':');
  address.host = std::string(rest.substr(0, colon));
  if (colon != std::string_view::npos) {
    std::string_view port = rest.substr(colon + 1);
    auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), address.port);
    if (error != std::errc() || end != port.data() + port.size() || address.port < 1 ||
        address.port > 65535)
      address.host.clear();
  }
  if (address.host.empty() || address.host.find_first_of("/@") != std::string::npos)
    throw RelayServerError(RelayServerErrorKind::settings,
                           "--redis needs redis://HOST:PORT, not " + url);
  return address;
}

RedisMailboxStore::Script::Script(const char* text_)
    : text(text_), sha1(hexEncode(crypto::sha1(bytesOf(text_)))) {}

void RedisMailboxStore::ReplyDeleter::operator()(void* reply) const { freeReplyObject(reply); }
void RedisMailboxStore::ContextDeleter::operator()(redisContext* context) const {
  redisFree(context);
}

RedisMailboxStore::RedisMailboxStore(const RedisAddress& address, std::string prefix)
    : address_(address), prefix_(std::move(prefix)), connections_(kConnections) {
  // The first connection now, so that an unreachable server fails the start.
  Reply pong = command({"PING"});
  if (pong->type != REDIS_REPLY_STATUS) fail("PING was not answered with PONG");
}

RedisMailboxStore::~RedisMailboxStore() {
  stopping_ = true;
  if (int socket = subscriberSocket_.load(); socket >= 0) ::shutdown(socket, SHUT_RDWR);
  if (subscriber_.joinable()) subscriber_.join();
}

RedisMailboxStore::Context RedisMailboxStore::connect() const {
  timeval timeout{kConnectTimeoutSeconds, 0};
  Context context(redisConnectWithTimeout(address_.host.c_str(), address_.port, timeout));
  if (!context) fail("cannot allocate a connection");
  if (context->err)
    fail("cannot connect to " + address_.host + ":" + std::to_string(address_.port) + ": " +
         context->errstr);
  return context;
}

RedisMailboxStore::Reply RedisMailboxStore::send(const std::vector<std::string>& arguments) {
  std::vector<const char*> pointers;
  std::vector<size_t> lengths;
  for (const std::string& argument : arguments) {
    pointers.push_back(argument.data());
    lengths.push_back(argument.size());
  }
  // Connections are taken in turn; a caller waits only while another uses the same one.
  Connection& connection = connections_[next_++ % connections_.size()];
  MutexLock lock(connection.mutex);
  // A connection that broke is opened again once.
  for (int attempt = 0; attempt < 2; ++attempt) {
    if (!connection.context || connection.context->err) {
      connection.context = connect();
      timeval timeout{kCommandTimeoutSeconds, 0};
      redisSetTimeout(connection.context.get(), timeout);
    }
    Reply reply(static_cast<redisReply*>(redisCommandArgv(connection.context.get(),
                                                          static_cast<int>(arguments.size()),
                                                          pointers.data(), lengths.data())));
    if (reply) return reply;
    if (attempt == 1) fail(arguments[0] + " failed: " + connection.context->errstr);
  }
  fail("unreachable");
}

RedisMailboxStore::Reply RedisMailboxStore::command(const std::vector<std::string>& arguments) {
  Reply reply = send(arguments);
  if (reply->type == REDIS_REPLY_ERROR) fail(arguments[0] + " failed: " + reply->str);
  return reply;
}

RedisMailboxStore::Reply RedisMailboxStore::script(const Script& script,
                                                   std::vector<std::string> arguments) {
  // Redis keeps scripts by their SHA-1, so only the first call (per server) sends the text.
  arguments.insert(arguments.begin(), {"EVALSHA", script.sha1});
  Reply reply = send(arguments);
  if (reply->type == REDIS_REPLY_ERROR && std::string_view(reply->str).starts_with("NOSCRIPT")) {
    arguments[0] = "EVAL";
    arguments[1] = script.text;
    reply = send(arguments);
  }
  if (reply->type == REDIS_REPLY_ERROR) fail(std::string("a script failed: ") + reply->str);
  return reply;
}

std::string RedisMailboxStore::key(const char* kind, std::string_view id) const {
  return prefix_ + kind + (id.empty() ? "" : ":" + std::string(id));
}

void RedisMailboxStore::createMailbox(const MailboxRecord& mailbox) {
  const std::string mailboxKey = key("mailbox", mailbox.id);
  std::vector<std::string> fields = {"HSETNX", mailboxKey, "secret", text(mailbox.secretHash)};
  if (command(fields)->integer != 1) fail("mailbox id already in use");
  std::vector<std::string> rest = {
      "HSET", mailboxKey, "created", number(mailbox.createdAt.secondsSince1970), "last_seq", "0"};
  if (mailbox.expiresAt) {
    rest.push_back("expires");
    rest.push_back(number(mailbox.expiresAt->secondsSince1970));
  }
  command(rest);
  command({"SADD", key("tokens", mailbox.id), text(mailbox.sendTokenHash)});
  command({"ZADD", key("mailboxes"),
           mailbox.expiresAt ? number(mailbox.expiresAt->secondsSince1970) : "+inf", mailbox.id});
}

MailboxAccess RedisMailboxStore::access(std::string_view id, ByteView credentialHash, Date now) {
  static const Script kAccess{kAccessScript};
  Reply reply = script(kAccess, {"2", key("mailbox", id), key("tokens", id), text(credentialHash)});
  if (reply->type != REDIS_REPLY_ARRAY || reply->elements != 3 ||
      reply->element[0]->type != REDIS_REPLY_STRING ||
      reply->element[1]->type != REDIS_REPLY_STRING)
    return MailboxAccess::none;
  const redisReply* ends = reply->element[1];
  if (ends->len > 0 && now.secondsSince1970 >= std::strtod(ends->str, nullptr))
    return MailboxAccess::none;
  ByteView secret(reinterpret_cast<const uint8_t*>(reply->element[0]->str), reply->element[0]->len);
  if (sameCredentialHash(secret, credentialHash)) return MailboxAccess::owner;
  return reply->element[2]->integer == 1 ? MailboxAccess::sender : MailboxAccess::none;
}

void RedisMailboxStore::addSendToken(std::string_view id, ByteView tokenHash) {
  command({"SADD", key("tokens", id), text(tokenHash)});
}

bool RedisMailboxStore::removeSendToken(std::string_view id, ByteView tokenHash) {
  return command({"SREM", key("tokens", id), text(tokenHash)})->integer == 1;
}

void RedisMailboxStore::setPushRegistration(std::string_view id,
                                            const PushRegistration& registration) {
  command({"HSET", key("mailbox", id), "push_token", registration.token, "push_topic",
           registration.topic, "push_production", registration.production ? "1" : "0"});
}

AppendOutcome RedisMailboxStore::appendMessage(std::string_view id, ByteView data, bool push,
                                               Date now, size_t maxMessages) {
  Reply reply =
      command({"EVAL", kAppendScript, "4", key("mailbox", id), key("messages", id), key("ages"),
               key("arrivals"), std::string(id), text(data), number(now.secondsSince1970),
               std::to_string(maxMessages), push ? "1" : "0"});
  if (reply->integer == -1) return {AppendOutcome::Result::noMailbox, 0};
  if (reply->integer == -2) return {AppendOutcome::Result::mailboxFull, 0};
  return {AppendOutcome::Result::stored, static_cast<uint64_t>(reply->integer)};
}

std::vector<StoredMessage> RedisMailboxStore::messagesAfter(std::string_view id, uint64_t after,
                                                            size_t maxBytes) {
  std::vector<StoredMessage> result;
  Reply reply =
      command({"ZRANGEBYSCORE", key("messages", id), "(" + std::to_string(after), "+inf"});
  if (reply->type != REDIS_REPLY_ARRAY) return result;
  size_t bytes = 0;
  for (size_t i = 0; i < reply->elements; ++i) {
    const redisReply* member = reply->element[i];
    if (member->type != REDIS_REPLY_STRING || member->len < kSeqDigits) continue;
    uint64_t seq = 0;
    std::from_chars(member->str, member->str + kSeqDigits, seq);
    // Scores are doubles: the exact seq in the member decides.
    if (seq <= after) continue;
    const size_t size = member->len - kSeqDigits;
    if (!result.empty() && bytes + size > maxBytes) break;
    bytes += size;
    const auto* begin = reinterpret_cast<const uint8_t*>(member->str) + kSeqDigits;
    result.push_back({seq, Bytes(begin, begin + size)});
  }
  return result;
}

void RedisMailboxStore::acknowledge(std::string_view id, uint64_t upTo, Date now) {
  static const Script kAcknowledge{kAcknowledgeScript};
  script(kAcknowledge, {"3", key("mailbox", id), key("messages", id), key("acked"), std::string(id),
                        std::to_string(upTo), number(now.secondsSince1970)});
}

bool RedisMailboxStore::deleteMailbox(std::string_view id) {
  static const Script kDelete{kDeleteScript};
  return script(kDelete, {"6", key("mailbox", id), key("tokens", id), key("messages", id),
                          key("mailboxes"), key("ages"), key("acked"), std::string(id)})
             ->integer == 1;
}

void RedisMailboxStore::expire(Date now, Date storedBefore, Date acknowledgedUntil) {
  static const Script kExpire{kExpireScript};
  script(kExpire, {"3", key("mailboxes"), key("ages"), key("acked"), prefix_,
                   number(now.secondsSince1970), number(storedBefore.secondsSince1970),
                   std::to_string(kExpiryBatch), number(acknowledgedUntil.secondsSince1970)});
}

StoreCounts RedisMailboxStore::counts() {
  StoreCounts counts;
  counts.mailboxes = static_cast<uint64_t>(command({"ZCARD", key("mailboxes")})->integer);
  counts.messages = static_cast<uint64_t>(command({"ZCARD", key("ages")})->integer);
  return counts;
}

void RedisMailboxStore::setArrivalListener(ArrivalListener listener) {
  if (subscriber_.joinable()) return;
  subscriber_ = std::thread([this, listener = std::move(listener)] { listen(listener); });
}

void RedisMailboxStore::listen(ArrivalListener listener) {
  const std::string channel = key("arrivals");
  while (!stopping_) {
    Context context;
    try {
      context = connect();
    } catch (const RelayServerError& error) {
      std::fprintf(stderr, "quorvane-relay: %s; trying again in a second\n", error.what());
      for (int i = 0; i < 10 && !stopping_; ++i)
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
      continue;
    }
    subscriberSocket_ = context->fd;
    if (stopping_) break;
    Reply subscribed(static_cast<redisReply*>(
        redisCommand(context.get(), "SUBSCRIBE %b", channel.data(), channel.size())));
    while (subscribed && !stopping_) {
      void* raw = nullptr;
      if (redisGetReply(context.get(), &raw) != REDIS_OK) break;
      Reply reply(static_cast<redisReply*>(raw));
      if (reply->type == REDIS_REPLY_ARRAY && reply->elements == 3 &&
          reply->element[2]->type == REDIS_REPLY_STRING)
        listener(std::string(reply->element[2]->str, reply->element[2]->len));
    }
    subscriberSocket_ = -1;
  }
}

}  // namespace quorvane::relay
