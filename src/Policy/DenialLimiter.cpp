#include "Policy/DenialLimiter.h"

#include <algorithm>

namespace quorvane {

namespace {

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
  return "key|" + request.keyFingerprint;
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

void DenialLimiter::prune(Date now) {
  std::erase_if(blocks, [now](const auto& entry) { return entry.second <= now; });
  for (auto& entry : denials)
    std::erase_if(entry.second, [now](Date denial) { return !stillCounts(denial, now); });
  std::erase_if(denials, [](const auto& entry) { return entry.second.empty(); });
}

}  // namespace quorvane
