#include "RelayClient/RelayRequests.h"

#include <cstdio>

#include "Base/JSONReader.h"

namespace quorvane::relay_requests {
namespace {

constexpr std::string_view kMailboxes = "v1/mailbox";

std::string mailboxPath(const std::string& id) {
  return std::string(kMailboxes) + "/" + percentEncodedComponent(id);
}

RelayRequest request(std::string method, std::string path, std::optional<SecureBytes> bearer,
                     std::set<int> accepted, double timeout) {
  return RelayRequest{std::move(method), std::move(path),     std::move(bearer),
                      std::nullopt,      std::move(accepted), timeout};
}

// Appends `text` as a JSON string literal; the token it carries never passes through a
// std::string.
void appendJSONString(SecureBytes& out, std::string_view text) {
  out.push_back('"');
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      out.push_back('\\');
      out.push_back(byte);
    } else if (byte < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      out.append(escaped);
    } else {
      out.push_back(byte);
    }
  }
  out.push_back('"');
}

}  // namespace

RelayRequest createMailbox(bool ephemeral, const RelayTimeouts& timeouts) {
  RelayRequest created =
      request("POST", std::string(kMailboxes), std::nullopt, {201}, timeouts.request);
  if (ephemeral) created.path += "?ephemeral=1";
  return created;
}

RelayRequest createSendToken(const MailboxCredentials& mailbox, const RelayTimeouts& timeouts) {
  return request("POST", mailboxPath(mailbox.id) + "/send-tokens", mailbox.secret, {201},
                 timeouts.request);
}

RelayRequest revokeSendToken(const MailboxCredentials& mailbox, const SecureBytes& sendToken,
                             const RelayTimeouts& timeouts) {
  RelayRequest revoke = request("DELETE", mailboxPath(mailbox.id) + "/send-tokens", mailbox.secret,
                                {204, 404}, timeouts.request);
  SecureBytes body;
  body.append("{\"send_token\":");
  appendJSONString(body, sendToken.text());
  body.push_back('}');
  revoke.body = std::move(body);
  return revoke;
}

RelayRequest registerPushToken(const MailboxCredentials& mailbox,
                               const PushRegistration& registration,
                               const RelayTimeouts& timeouts) {
  RelayRequest registering = request("POST", mailboxPath(mailbox.id) + "/push-token",
                                     mailbox.secret, {204}, timeouts.request);
  const std::string text = JSON{{"token", registration.token},
                                {"topic", registration.topic},
                                {"production", registration.production}}
                               .dump();
  registering.body = SecureBytes(bytesOf(text));
  return registering;
}

RelayRequest send(const MailboxAddress& address, const Envelope& envelope, bool push,
                  const RelayTimeouts& timeouts) {
  RelayRequest sending = request("POST", mailboxPath(address.id) + "/messages", address.sendToken,
                                 {202}, timeouts.request);
  if (push) sending.path += "?push=1";
  sending.body = SecureBytes(envelope.encode());
  return sending;
}

RelayRequest fetch(const MailboxCredentials& mailbox, uint64_t after, bool wait,
                   const RelayTimeouts& timeouts) {
  std::string path = mailboxPath(mailbox.id) + "/messages?after=" + std::to_string(after);
  if (wait) path += "&wait=1";
  return request("GET", std::move(path), mailbox.secret, {200},
                 wait ? timeouts.waitingFetch : timeouts.request);
}

RelayRequest deleteMailbox(const MailboxCredentials& mailbox, const RelayTimeouts& timeouts) {
  return request("DELETE", mailboxPath(mailbox.id), mailbox.secret, {204, 404}, timeouts.request);
}

RelayRequest health(const RelayTimeouts& timeouts) {
  return request("GET", "healthz", std::nullopt, {}, timeouts.health);
}

}  // namespace quorvane::relay_requests

namespace quorvane {

std::string percentEncodedComponent(std::string_view text) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string encoded;
  for (char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    bool unreserved = (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') ||
                      c == '-' || c == '.' || c == '_' || c == '~';
    if (unreserved) {
      encoded.push_back(c);
    } else {
      encoded.push_back('%');
      encoded.push_back(kHex[byte >> 4]);
      encoded.push_back(kHex[byte & 0x0f]);
    }
  }
  return encoded;
}

}  // namespace quorvane
