#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/JSONReader.h"
#include "Policy/GitHint.h"

namespace quorvane {

// What is known of the program behind a signing request.
struct RequestOrigin {
  // The code-signing identifier of the program taken as the app.
  std::optional<std::string> appIdentifier;
  // That program's signing team; absent for unsigned programs.
  std::optional<std::string> appTeamID;
  // A display name, always present.
  std::string appName;
  // Executable paths of the process chain, from the requesting process up to the app.
  std::vector<std::string> chainPaths;
  // The requesting process's current directory.
  std::optional<std::string> workingDirectory;
  // Set when the chain shows a Git transfer.
  std::optional<GitHint> gitHint;
  // A reason, and a duration in seconds, that the client stated itself. Never trusted: shown to
  // the user, never used for matching.
  std::optional<std::string> claimedReason;
  std::optional<int64_t> claimedSeconds;
  // Paths of the programs in the chain that carry no valid signature.
  std::vector<std::string> unsignedPrograms;

  friend bool operator==(const RequestOrigin&, const RequestOrigin&) = default;
};

// The identity of the approved program, which grants and the denial limiter are keyed by:
// "TEAM:identifier" (or "TEAM:appName" without an identifier) for a signed program, otherwise
// "unverified:" and the last path of the chain (or appName when the chain is empty).
std::string treeKey(const RequestOrigin& origin);

// JSON form: an object keyed by the field names. Optional fields are left out when absent and may
// be missing on input; "appName", "chainPaths" and "unsignedPrograms" are required.
JSON toJSON(const RequestOrigin& origin);
RequestOrigin decodeRequestOrigin(const JSONReader& reader);

}  // namespace quorvane
