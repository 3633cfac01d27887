#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "RelayClient/RelayRequests.h"

namespace quorvane {

// Where a relay is and how to trust it.
struct RelayEndpoint {
  std::string baseURL;  // "https://relay.example/" or with a path prefix; requests go below it
  // A PEM file of the certificate authorities to trust instead of the system's (a relay with a
  // private certificate authority); nothing: the system's.
  std::optional<std::filesystem::path> caFile;
  RelayTimeouts timeouts;

  friend bool operator==(const RelayEndpoint&, const RelayEndpoint&) = default;
};

// The URL of a request's `path` below `baseURL`: one "/" between them whether or not the base ends
// with one.
std::string relayURL(std::string_view baseURL, std::string_view path);

// Checks a relay base URL as a user typed it: an absolute https URL, or http to a loopback host
// (localhost, 127.0.0.0/8, [::1]) for a relay on this machine or behind a local TLS proxy; no user
// name or password, no query and no fragment. Returns the URL as the HTTP library writes it back
// (the scheme in lower case, "/" for an empty path), or nothing with the reason in `problem`.
std::optional<std::string> checkedRelayBaseURL(std::string_view text, std::string& problem);

}  // namespace quorvane
