#include "ActivityModel/KeyUsage.h"

#include <algorithm>

namespace quorvane {

namespace {

void keepNewest(std::optional<Date>& newest, Date date) {
  if (!newest || date > *newest) newest = date;
}

}  // namespace

void KeyUsageCollector::add(const ActivityEntry& entry) {
  if (entry.outcome != ActivityEntry::Outcome::signed_ || !entry.keyFingerprint) return;
  KeyTally& key = keys_[*entry.keyFingerprint];
  keepNewest(key.lastUsed, entry.date);
  if (entry.purpose == "sign:git") keepNewest(key.lastGitSignature, entry.date);
  if (entry.purpose == "login" && entry.host) {
    HostTally& host = key.hosts[{*entry.host, entry.hostVerified}];
    if (host.count == 0 || entry.date > host.lastUsed) host.lastUsed = entry.date;
    ++host.count;
  }
}

KeyUsage KeyUsageCollector::summarise(const KeyTally& tally) {
  KeyUsage usage;
  usage.lastUsed = tally.lastUsed;
  usage.lastGitSignature = tally.lastGitSignature;
  for (const auto& [which, host] : tally.hosts)
    usage.hosts.push_back({which.first, which.second, host.lastUsed, host.count});
  std::sort(usage.hosts.begin(), usage.hosts.end(),
            [](const KeyUsage::Host& a, const KeyUsage::Host& b) {
              if (a.lastUsed != b.lastUsed) return a.lastUsed > b.lastUsed;
              if (a.name != b.name) return a.name < b.name;
              return a.verified && !b.verified;
            });
  return usage;
}

KeyUsage KeyUsageCollector::usage(std::string_view keyFingerprint) const {
  auto found = keys_.find(keyFingerprint);
  return found == keys_.end() ? KeyUsage{} : summarise(found->second);
}

std::map<std::string, KeyUsage> KeyUsageCollector::usages() const {
  std::map<std::string, KeyUsage> result;
  for (const auto& [fingerprint, tally] : keys_) result.emplace(fingerprint, summarise(tally));
  return result;
}

}  // namespace quorvane
