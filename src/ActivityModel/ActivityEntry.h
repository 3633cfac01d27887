#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Date.h"
#include "Base/JSONReader.h"

namespace quorvane {

// One line of the activity log: what was asked, by whom, for which key and host, what was
// decided, by whom, and how it ended. The agent writes one per sign request, a retention purge
// writes one about itself.
struct ActivityEntry {
  // How a request ended. The raw values, in this order: "signed", "denied", "expired", "failed",
  // "rejected", "purged". (`signed_` carries an underscore because `signed` is a C++ keyword.)
  enum class Outcome { signed_, denied, expired, failed, rejected, purged };

  Date date;
  std::optional<std::string> keyFingerprint;
  // The key's display name at the time.
  std::optional<std::string> keyName;
  // A short purpose label: "login" for a login, "sign:git" for a Git signature.
  std::string purpose;
  // The host as shown to the user.
  std::optional<std::string> host;
  // Whether the host was proved by its host key.
  bool hostVerified = false;
  std::vector<std::string> forwardedVia;
  // The display name of the requesting program.
  std::string app;
  // The process chain as shown.
  std::vector<std::string> chain;
  std::optional<std::string> workingDirectory;
  // How the request was decided, and who or what decided it.
  std::string decision;
  std::string decidedBy;
  Outcome outcome = Outcome::rejected;
  // Free text: the reason of a refusal, an error, a purge summary.
  std::optional<std::string> note;
  std::optional<std::string> hostKeyFingerprint;
  std::optional<std::string> appIdentifier;

  friend bool operator==(const ActivityEntry&, const ActivityEntry&) = default;
};

std::string_view rawValue(ActivityEntry::Outcome outcome);

// JSON form: one object whose keys are the field names. The seven optional fields are left out
// when absent; on input they may be missing or null. The nine others are required. The date is
// ISO 8601 in UTC with whole seconds (a fraction of a second is dropped). Keys this version does
// not know are ignored, so that entries written by a later version still read. Strings that are
// not valid UTF-8 are written with U+FFFD in place of the bad bytes.
JSON toJSON(const ActivityEntry& entry);
// Throws DecodingError; an unknown outcome fails the whole entry (dataCorrupted).
ActivityEntry decodeActivityEntry(const JSONReader& reader);

// The compact JSON text of an entry, keys sorted: the form the activity log stores and hashes.
std::string encodeActivityEntryText(const ActivityEntry& entry);
// Reads that text (or any JSON text of an entry). Throws DecodingError.
ActivityEntry decodeActivityEntryText(std::string_view text);

// Compact JSON text of any value as the log writes it: no spaces, UTF-8 kept as it is, invalid
// UTF-8 replaced by U+FFFD.
std::string dumpLogJSON(const JSON& value);

}  // namespace quorvane
