#pragma once

#include <optional>
#include <string>

#include "AgentEngine/HostNameResolver.h"
#include "AgentEngine/HostNameStatus.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {

// How a login's host is named. With a proved host key: the claimed name is `confirmed` when the
// resolver records it with that key, `conflict` when it records the name only with other keys,
// otherwise `claimed`; without a claimed name, the first name recorded for the key is
// `confirmed`. Without a proved key a claimed name stays `claimed`. Otherwise `unknown`.
// `resolver` may be null.
HostNameStatus resolveHostName(const SSHPublicKey* provedHostKey,
                               const std::optional<std::string>& claimedHost,
                               HostNameResolver* resolver);

// The bare name inside a status; nothing for `unknown`.
std::optional<std::string> hostNameOf(const HostNameStatus& status);

}  // namespace quorvane
