#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "ActivityModel/ActivityEntry.h"
#include "Base/Date.h"

namespace quorvane {

// A summary of one key's use, derived from its log entries.
struct KeyUsage {
  // One host that the key signed in to.
  struct Host {
    std::string name;
    bool verified = false;
    Date lastUsed;
    int64_t count = 0;

    friend bool operator==(const Host&, const Host&) = default;
  };

  // Newest first (by lastUsed, then name, verified before unverified).
  std::vector<Host> hosts;
  // The newest Git signature ("sign:git").
  std::optional<Date> lastGitSignature;
  // The newest use of any kind.
  std::optional<Date> lastUsed;

  friend bool operator==(const KeyUsage&, const KeyUsage&) = default;
};

// Derives KeyUsage for every key from log entries fed in any order, one at a time, so that a log
// of any length can be summarised while it streams past.
//
// Only entries with the outcome "signed" count: a use of a key is a signature it made; refused,
// expired and failed requests are not uses. An entry without a key fingerprint is ignored. A host
// row is one login ("login" with a host) per host name and verification: a login to a name that
// was proved by its host key and one to the same name that was not are different rows, because
// only the first says which machine it was.
class KeyUsageCollector {
 public:
  void add(const ActivityEntry& entry);

  // The usage of one key; empty (no hosts, no dates) when none of its entries counted.
  KeyUsage usage(std::string_view keyFingerprint) const;
  // The usage of every key that has counted entries, by fingerprint.
  std::map<std::string, KeyUsage> usages() const;

 private:
  struct HostTally {
    Date lastUsed;
    int64_t count = 0;
  };
  struct KeyTally {
    std::map<std::pair<std::string, bool>, HostTally> hosts;
    std::optional<Date> lastGitSignature;
    std::optional<Date> lastUsed;
  };
  static KeyUsage summarise(const KeyTally& tally);

  std::map<std::string, KeyTally, std::less<>> keys_;
};

}  // namespace quorvane
