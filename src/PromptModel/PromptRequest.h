#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Base/Date.h"
#include "Base/JSONReader.h"

namespace quorvane {

// One waiting signature request as the desktop dialog shows it, read from the agent's watch
// stream (the JSON form of an approval request).
struct PromptRequest {
  std::string id;      // the request's UUID, as the agent's answers name it
  std::string reason;  // program, action and key in one sentence: the dialog's title
  std::string keyName;
  std::string keyFingerprint;
  std::string programName;
  bool programVerified = false;  // the program's identity is vouched for (a system program)
  std::optional<std::string> hostDisplay;  // with its name status, as the reason words it
  bool hostWarning = false;                // the host key differs from the one seen before
  std::optional<std::string> hostKeyFingerprint;
  std::vector<std::string> chainPaths;
  std::optional<std::string> workingDirectory;
  std::optional<std::string> claimedReason;  // the program's own word: shown, never trusted
  std::optional<int64_t> claimedSeconds;
  bool windowAllowed = false;
  bool remoteOffline = false;  // a paired device should have decided but cannot be reached
  Date expiresAt;

  friend bool operator==(const PromptRequest&, const PromptRequest&) = default;
};

// The request in `json`. Throws DecodingError when a required field is missing or of the wrong
// type; fields the dialog does not show are ignored.
PromptRequest decodePromptRequest(const JSON& json);

// One row of the dialog's details: a label, its text, and whether it is a warning.
struct PromptDetail {
  std::string label;
  std::string text;
  bool warning = false;
  friend bool operator==(const PromptDetail&, const PromptDetail&) = default;
};

// The rows shown under the title, in order: program (and whether it is verified), key, host and
// host key, the program's own claim, the process chain, the folder.
std::vector<PromptDetail> promptDetails(const PromptRequest& request);

// Shown when a request that a paired device should decide waits here because the relay cannot be
// reached.
inline constexpr std::string_view kRemoteOfflineText =
    "Remote approval is offline. Approve on this computer instead.";

}  // namespace quorvane
