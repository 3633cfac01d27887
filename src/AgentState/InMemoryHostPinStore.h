#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "AgentState/HostPinStore.h"

namespace quorvane {

// Host pins kept in memory only, for tests of the layers above.
class InMemoryHostPinStore final : public HostPinStore {
 public:
  std::optional<std::string> pinnedFingerprint(std::string_view hostName) override {
    std::lock_guard lock(mutex_);
    auto found = pins_.find(std::string(hostName));
    if (found == pins_.end()) return std::nullopt;
    return found->second;
  }
  void pin(std::string_view hostName, std::string_view fingerprint) override {
    std::lock_guard lock(mutex_);
    pins_.insert_or_assign(std::string(hostName), std::string(fingerprint));
  }

 private:
  std::mutex mutex_;
  std::map<std::string, std::string> pins_;  // guarded by mutex_
};

}  // namespace quorvane
