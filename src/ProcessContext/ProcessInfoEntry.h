#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Base/JSONReader.h"

namespace quorvane {

// One process of a peer's chain. Every text is well-formed UTF-8.
struct ProcessInfoEntry {
  int32_t pid = 0;
  // The executable's path, or "?" when the system does not report one.
  std::string path;
  // The name to show: the executable's file name (on Linux, for a process whose executable cannot
  // be read, the kernel's short name of the process).
  std::string name;
  // The command line, redacted and bounded (see redactArguments).
  std::vector<std::string> arguments;
  std::optional<std::string> workingDirectory;
  // Code-signing facts (see SigningFacts): an identifier and a team only for a verified program;
  // all four absent when the executable could not be examined.
  std::optional<std::string> signingIdentifier;
  std::optional<std::string> teamIdentifier;
  std::optional<bool> signatureValid;
  std::optional<bool> appleSigned;
  // The enclosing application bundle; Linux has none.
  std::optional<std::string> appBundlePath;

  friend bool operator==(const ProcessInfoEntry&, const ProcessInfoEntry&) = default;
};

// JSON form: an object keyed by the field names. "pid", "path", "name" and "arguments" are
// required; the optional fields are left out when absent and may be missing on input. A pid that
// does not fit in 32 bits is dataCorrupted.
JSON toJSON(const ProcessInfoEntry& entry);
ProcessInfoEntry decodeProcessInfoEntry(const JSONReader& reader);

}  // namespace quorvane
