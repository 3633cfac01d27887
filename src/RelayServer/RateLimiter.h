#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>

#include "Base/Date.h"
#include "Base/Mutex.h"

namespace quorvane::relay {

// Requests per client address: a token bucket per address that holds `perMinute` requests and
// refills evenly over a minute. Memory is bounded: past `maxAddresses` tracked addresses, the
// buckets that are full again (their address has been quiet) are dropped, and if none is, the
// table starts afresh.
class RateLimiter {
 public:
  RateLimiter(double perMinute, size_t maxAddresses);

  // Takes one request from the address's bucket. Nothing when allowed; otherwise the whole
  // seconds to wait before the next request is allowed (at least 1). A rate of 0 or less allows
  // everything.
  std::optional<int> take(const std::string& address, Date now);

 private:
  struct Bucket {
    double tokens = 0;
    Date updated;
  };
  void prune(Date now) REQUIRES(mutex_);

  const double perMinute_;
  const size_t maxAddresses_;
  Mutex mutex_;
  std::unordered_map<std::string, Bucket> buckets_ GUARDED_BY(mutex_);
};

}  // namespace quorvane::relay
