// A request as the relay's HTTP layer hands it to the service: the method, the target, the
// Authorization header and the body, taken from the input's first three lines and the rest. The
// store holds one mailbox whose secret is "owner" and whose send token is "sender", so that inputs
// reach the authorised routes too. Nothing may crash or over-read; every answer has a status the
// API uses, and every JSON answer parses.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <set>
#include <string_view>

#include "RelayServer/InMemoryMailboxStore.h"
#include "RelayServer/RelayCredentials.h"
#include "RelayServer/RelayService.h"

namespace {

using namespace quorvane;
using namespace quorvane::relay;

std::string_view nextLine(std::string_view& text) {
  size_t newline = text.find('\n');
  std::string_view line = text.substr(0, newline);
  text = newline == std::string_view::npos ? std::string_view() : text.substr(newline + 1);
  return line;
}

SecureBytes secretOf(std::string_view text) {
  SecureBytes bytes;
  bytes.append(text);
  return bytes;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static InMemoryMailboxStore store;
  static WaitingFetches waiting;
  static RelayLimits limits = [] {
    RelayLimits unlimited;
    unlimited.creationsPerMinute = 0;
    unlimited.sendsPerMinute = 0;
    unlimited.maxMessagesPerMailbox = 50;
    return unlimited;
  }();
  static RelayService service(store, waiting, limits);
  // The mailbox is made again whenever an input deleted it.
  if (store.access("box", credentialHash(secretOf("owner")), Date{1000}) == MailboxAccess::none)
    store.createMailbox({"box", credentialHash(secretOf("owner")),
                         credentialHash(secretOf("sender")), false, Date{0}, std::nullopt});

  std::string_view text(reinterpret_cast<const char*>(data), size);
  RelayRequest request;
  request.method = std::string(nextLine(text));
  request.target = std::string(nextLine(text));
  std::string_view authorization = nextLine(text);
  if (!authorization.empty()) request.authorization = secretOf(authorization);
  request.body = Bytes(text.begin(), text.end());
  request.clientAddress = "192.0.2.1";

  RelayAnswer answer = service.handle(request, Date{1000});
  static const std::set<int> kStatuses = {200, 201, 202, 204, 400, 401, 404, 405, 413, 429, 503};
  if (!kStatuses.contains(answer.status)) std::abort();
  if (answer.contentType == "application/json" &&
      nlohmann::json::parse(answer.body, nullptr, false).is_discarded())
    std::abort();
  if (answer.wait) {
    RelayAnswer later = service.fetchNow(*answer.wait);
    if (later.status != 200) std::abort();
  }
  // Keeps the store small across runs.
  service.expire(Date{1000 + 2 * limits.messageLifetimeSeconds});
  return 0;
}
