#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <tuple>

#include "Base/Mutex.h"

namespace quorvane::relay {

// What the relay has done and holds now, written in the Prometheus text format (version 0.0.4).
class RelayMetrics {
 public:
  // Counts one answered request. Methods other than GET, HEAD, POST and DELETE count as "other".
  void countRequest(const std::string& method, const std::string& route, int status);

  struct Gauges {
    uint64_t waitingFetches = 0;
    uint64_t mailboxes = 0;
    uint64_t messagesStored = 0;
  };
  std::string prometheusText(const Gauges& gauges);

 private:
  Mutex mutex_;
  std::map<std::tuple<std::string, std::string, int>, uint64_t> requests_ GUARDED_BY(mutex_);
};

}  // namespace quorvane::relay
