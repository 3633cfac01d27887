#pragma once

#include <array>
#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// What stands in place of a secret.
inline constexpr std::string_view kRedactedText = "\u2039redacted\u203A";
// Arguments after these are replaced whole (the pair --token abc becomes --token ‹redacted›).
inline constexpr std::array<std::string_view, 8> kSecretFlags = {
    "--token", "--password", "--pass", "--secret", "--api-key", "--auth", "-H", "--header"};
// An argument list keeps at most this many arguments...
inline constexpr size_t kMaximumKeptArguments = 24;
// ...and each of them at most this many characters (Unicode code points) before the ellipsis.
inline constexpr size_t kMaximumArgumentCharacters = 200;
inline constexpr std::string_view kEllipsis = "\u2026";

// The text with secrets replaced by kRedactedText: credentials in URLs, NAME=value assignments
// whose name mentions a token, password, secret, API key or auth, authorization headers, well-known
// token shapes (GitHub, GitLab, Slack, OpenAI-style, AWS, Cloudflare) and long opaque blobs. Bytes
// that are not UTF-8 become U+FFFD first, so the result is always well-formed UTF-8. Should a
// pattern exhaust its match budget, the whole text is withheld (kRedactedText).
std::string redact(std::string_view text);

// The first kMaximumKeptArguments arguments, each redacted: the argument after a secret flag is
// replaced whole; any other argument goes through `redact` and is cut to
// kMaximumArgumentCharacters characters followed by "…". When arguments were left out, a last
// element "… (+N)" says how many.
std::vector<std::string> redactArguments(const std::vector<std::string>& arguments);

// The same for a list known only by its beginning: `leadingArguments` holds the first arguments
// (at least kMaximumKeptArguments of them, or all) of a list of `totalCount`.
std::vector<std::string> redactArguments(const std::vector<std::string>& leadingArguments,
                                         size_t totalCount);

}  // namespace quorvane
