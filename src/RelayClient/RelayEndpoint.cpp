#include "RelayClient/RelayEndpoint.h"

#include <curl/curl.h>

#include <memory>

namespace quorvane {
namespace {

struct URLDeleter {
  void operator()(CURLU* url) const { curl_url_cleanup(url); }
};
struct PartDeleter {
  void operator()(char* part) const { curl_free(part); }
};
using Part = std::unique_ptr<char, PartDeleter>;

// One part of a parsed URL; nothing when the URL has none.
std::optional<std::string> part(CURLU* url, CURLUPart which) {
  char* text = nullptr;
  if (curl_url_get(url, which, &text, 0) != CURLUE_OK || text == nullptr) return std::nullopt;
  Part owned(text);
  return std::string(owned.get());
}

bool isLoopback(const std::string& host) {
  if (host == "localhost" || host == "[::1]") return true;
  // 127.0.0.0/8 in dotted decimal, which the URL parser has already normalised.
  return host.starts_with("127.") && host.find_first_not_of("0123456789.") == std::string::npos;
}

}  // namespace

std::string relayURL(std::string_view baseURL, std::string_view path) {
  std::string url(baseURL);
  while (!url.empty() && url.back() == '/') url.pop_back();
  url += '/';
  url += path;
  return url;
}

std::optional<std::string> checkedRelayBaseURL(std::string_view text, std::string& problem) {
  std::unique_ptr<CURLU, URLDeleter> url(curl_url());
  if (!url) {
    problem = "the URL could not be read";
    return std::nullopt;
  }
  const std::string owned(text);
  if (owned.find_first_of(" \t\r\n") != std::string::npos ||
      curl_url_set(url.get(), CURLUPART_URL, owned.c_str(), 0) != CURLUE_OK) {
    problem = "\"" + owned + "\" is not an absolute URL (for example https://relay.example.com/)";
    return std::nullopt;
  }
  const std::string scheme = part(url.get(), CURLUPART_SCHEME).value_or("");
  const std::string host = part(url.get(), CURLUPART_HOST).value_or("");
  if (scheme != "https" && scheme != "http") {
    problem = "the relay URL must start with https://";
    return std::nullopt;
  }
  if (scheme == "http" && !isLoopback(host)) {
    problem =
        "plain http is only for a relay on this machine (localhost, 127.0.0.1 or [::1]); "
        "use https://";
    return std::nullopt;
  }
  if (part(url.get(), CURLUPART_USER) || part(url.get(), CURLUPART_PASSWORD)) {
    problem = "the relay URL must not carry a user name or password";
    return std::nullopt;
  }
  if (part(url.get(), CURLUPART_QUERY) || part(url.get(), CURLUPART_FRAGMENT)) {
    problem = "the relay URL must not have a query (?) or a fragment (#)";
    return std::nullopt;
  }
  std::optional<std::string> normalised = part(url.get(), CURLUPART_URL);
  if (!normalised) {
    problem = "the URL could not be read";
    return std::nullopt;
  }
  return normalised;
}

}  // namespace quorvane
