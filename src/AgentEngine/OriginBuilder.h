#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Policy/GitHint.h"
#include "Policy/RequestOrigin.h"
#include "ProcessContext/PeerOrigin.h"

namespace quorvane {

// The request origin the policy sees, from a connection's peer chain:
// - the app is the process a known coding agent or editor was recognised in; otherwise the
//   outermost ancestor that is not a shell, terminal multiplexer, privilege tool or service
//   manager; otherwise the peer itself;
// - `appName` is the known agent's display name or the app's executable name ("unknown" for an
//   empty chain); `appIdentifier` its signing identifier; `appTeamID` its team, else "apple" when
//   the platform vouches for it, else absent;
// - `chainPaths` and `unsignedPrograms` cover the chain from the peer up to the app;
// - `workingDirectory` is the peer's; `gitHint` comes from the ssh command's arguments.
RequestOrigin buildRequestOrigin(const PeerOrigin& peer);

// `push` when an argument contains "git-receive-pack"; otherwise `fetch` when one contains
// "git-upload-pack" or "git-upload-archive"; otherwise nothing.
std::optional<GitHint> gitHintFromArguments(const std::vector<std::string>& arguments);

// The host an ssh client in the chain was told to connect to, named as known_hosts names it:
// "host", or "[host]:port" for a port other than 22 (from -p, -oPort=, or ssh://host:port). The
// destination is the first argument of `ssh` that is not an option (options that take a value are
// skipped with it; "user@host" gives "host"). Nothing when the chain has no ssh.
std::optional<std::string> claimedHostOf(const PeerOrigin& peer);
std::optional<std::string> sshDestinationHost(const std::vector<std::string>& sshArguments);

}  // namespace quorvane
