#include "Policy/DenialLimiter.h"

#include <algorithm>

namespace quorvane {

namespace {

constexpr std::string_view kKeyWidePrefix = "key|";

bool stillCounts(Date denial, Date now) { return now.secondsSince(denial) < kDenialWindowSeconds; }

// Adds one denial under `key`; at `limit` denials within the window the key is blocked and its
// count starts again from zero.
void countDenial(DenialLimiter& limiter, const std::string& key, size_t limit, Date now) {
  std::vector<Date>& dates = limiter.denials[key];
  std::erase_if(dates, [now](Date denial) { return !stillCounts(denial, now); });
  dates.push_back(now);
  if (dates.size() >= limit) {
    limiter.blocks[key] = now + kDenialBlockSeconds;
    dates.clear();
  }
}

}  // namespace

std::string originLimiterKey(const PolicyRequest& request) {
  return request.keyFingerprint + "|" + treeKey(request.origin);
}

std::string keyWideLimiterKey(const PolicyRequest& request) {
  return std::string(kKeyWidePrefix) + request.keyFingerprint;
}

void DenialLimiter::recordDenial(const PolicyRequest& request, bool block, Date now) {
  countDenial(*this, keyWideLimiterKey(request), kKeyWideDenialLimit, now);
  std::string originKey = originLimiterKey(request);
  if (block) {
    blocks[originKey] = now + kDenialBlockSeconds;
    denials[originKey].clear();
  } else {
    countDenial(*this, originKey, kPerOriginDenialLimit, now);
  }
}

std::optional<Date> DenialLimiter::blockedUntil(const PolicyRequest& request, Date now) const {
  for (const std::string& key : {originLimiterKey(request), keyWideLimiterKey(request)}) {
    auto found = blocks.find(key);
    if (found != blocks.end() && found->second > now) return found->second;
  }
  return std::nullopt;
}

namespace {

// The block a limiter key names: "key|FINGERPRINT" for every program, "FINGERPRINT|TREE-KEY" for
// one (fingerprints hold no "|").
DenialBlock blockNamed(const std::string& limiterKey, Date until) {
  if (limiterKey.starts_with(kKeyWidePrefix))
    return {limiterKey.substr(kKeyWidePrefix.size()), "", until};
  const size_t bar = limiterKey.find('|');
  return {limiterKey.substr(0, bar), bar == std::string::npos ? "" : limiterKey.substr(bar + 1),
          until};
}

}  // namespace

std::vector<DenialBlock> DenialLimiter::activeBlocks(Date now) const {
  std::vector<DenialBlock> active;
  for (const auto& [key, until] : blocks)
    if (until > now) active.push_back(blockNamed(key, until));
  std::ranges::sort(active,
                    [](const DenialBlock& a, const DenialBlock& b) { return a.until < b.until; });
  return active;
}

size_t DenialLimiter::lift(const std::function<bool(const DenialBlock&)>& lifted, Date now) {
  size_t count = 0;
  for (auto entry = blocks.begin(); entry != blocks.end();) {
    if (entry->second > now && lifted(blockNamed(entry->first, entry->second))) {
      denials.erase(entry->first);
      entry = blocks.erase(entry);
      ++count;
    } else {
      ++entry;
    }
  }
  return count;
}

void DenialLimiter::prune(Date now) {
  std::erase_if(blocks, [now](const auto& entry) { return entry.second <= now; });
  for (auto& entry : denials)
    std::erase_if(entry.second, [now](Date denial) { return !stillCounts(denial, now); });
  std::erase_if(denials, [](const auto& entry) { return entry.second.empty(); });
}

}  // namespace quorvane
