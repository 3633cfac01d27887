#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Bytes.h"
#include "Base/Date.h"

namespace quorvane {

// Readers of what the diagnostics get from other programs and files. Each takes text or bytes from
// outside, never throws, and answers "nothing" (or an empty list) for anything it cannot read.

// The host names on the Host lines of an ssh_config text, in order of first appearance, without
// duplicates. Patterns with wildcards ("*", "?"), negations ("!host") and "Match" blocks name no
// host. Keywords are case-insensitive and may be followed by "=" (as ssh reads them); quoted
// names lose their quotes.
std::vector<std::string> namedHosts(std::string_view configText);

// The value of the "identityagent" line in the output of `ssh -G HOST`; nothing when there is none.
std::optional<std::string> identityAgentLine(std::string_view sshGOutput);

// The value of NAME in `systemctl --user show-environment` output (lines NAME=VALUE; systemd
// quotes values with special characters in $'...' form, which is decoded for the simple escapes
// \\, \', \", \n and \t). Nothing when NAME is not set.
std::optional<std::string> environmentValue(std::string_view showEnvironmentOutput,
                                            std::string_view name);

// The number of keys in an agent's answer body (the bytes after the length): an identities answer
// (12) with that many (key blob, comment) pairs and nothing after them. Nothing for any other
// message or a malformed one.
std::optional<size_t> identitiesAnswerCount(ByteView body);

// An HTTP "Date" header in the form "Sun, 06 Nov 1994 08:49:37 GMT" (the zone GMT or UTC);
// nothing for any other text or an impossible date.
std::optional<Date> parseHTTPDate(std::string_view text);

}  // namespace quorvane
