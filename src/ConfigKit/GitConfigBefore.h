#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "Base/Date.h"
#include "Base/JSONReader.h"

namespace quorvane {

// A Git setting as it was before setup changed it: every value it had, in order (Git allows a
// key several times); no values when it was not set.
struct GitSavedSetting {
  std::string key;
  std::vector<std::string> values;
  friend bool operator==(const GitSavedSetting&, const GitSavedSetting&) = default;
};

// The earlier values for one Git configuration file: "global" (the user's global file), or the
// absolute path of a repository whose own file was changed.
struct GitConfigRecord {
  static constexpr std::string_view kGlobalScope = "global";

  std::string scope;
  Date savedAt;
  std::vector<GitSavedSetting> settings;
  friend bool operator==(const GitConfigRecord&, const GitConfigRecord&) = default;
};

// The undo record "git-config-before-quorvane.json" in the support folder:
//   {"records": [{"savedAt": ISO 8601, "scope": "global" | "/abs/repo",
//                 "settings": [{"key": "gpg.format", "values": ["openpgp"]}, ...]}, ...]}
// At most one record per scope, at most one entry per key in a record.
struct GitConfigBefore {
  static constexpr std::string_view kFileName = "git-config-before-quorvane.json";
  // Larger files are not read: a real record holds six settings per scope.
  static constexpr size_t kMaxFileSize = 1 << 20;

  std::vector<GitConfigRecord> records;

  // The record for `scope`, or null.
  const GitConfigRecord* find(std::string_view scope) const;

  // Adds what `earlier` says about its scope. Keys already recorded keep their recorded values:
  // a second setup must not save Quorvane's own values as the ones to go back to.
  void remember(const GitConfigRecord& earlier);

  // Drops the record for `scope` (after undo put its values back).
  void forget(std::string_view scope);

  JSON toJSON() const;
  // Throws DecodingError for anything but a well-formed record file (wrong types, missing fields,
  // a scope that is neither "global" nor absolute, an empty key, a scope or key twice).
  static GitConfigBefore fromJSON(std::string_view text);

  friend bool operator==(const GitConfigBefore&, const GitConfigBefore&) = default;
};

}  // namespace quorvane
