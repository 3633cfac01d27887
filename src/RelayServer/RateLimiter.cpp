#include "RelayServer/RateLimiter.h"

#include <algorithm>
#include <cmath>

namespace quorvane::relay {

RateLimiter::RateLimiter(double perMinute, size_t maxAddresses)
    : perMinute_(perMinute), maxAddresses_(std::max<size_t>(maxAddresses, 1)) {}

std::optional<int> RateLimiter::take(const std::string& address, Date now) {
  if (perMinute_ <= 0) return std::nullopt;
  const double perSecond = perMinute_ / 60;
  MutexLock lock(mutex_);
  auto found = buckets_.find(address);
  if (found == buckets_.end()) {
    if (buckets_.size() >= maxAddresses_) prune(now);
    found = buckets_.emplace(address, Bucket{perMinute_, now}).first;
  }
  Bucket& bucket = found->second;
  // A clock that went back refills nothing.
  const double elapsed = std::max(0.0, now.secondsSince(bucket.updated));
  bucket.tokens = std::min(perMinute_, bucket.tokens + elapsed * perSecond);
  bucket.updated = now;
  if (bucket.tokens >= 1) {
    bucket.tokens -= 1;
    return std::nullopt;
  }
  return std::max(1, static_cast<int>(std::ceil((1 - bucket.tokens) / perSecond)));
}

void RateLimiter::prune(Date now) {
  const double perSecond = perMinute_ / 60;
  std::erase_if(buckets_, [&](const auto& entry) {
    const Bucket& bucket = entry.second;
    return bucket.tokens + std::max(0.0, now.secondsSince(bucket.updated)) * perSecond >=
           perMinute_;
  });
  if (buckets_.size() >= maxAddresses_) buckets_.clear();
}

}  // namespace quorvane::relay
