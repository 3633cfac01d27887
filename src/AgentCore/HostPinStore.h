#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// Remembers with which host key (fingerprint) a host name was confirmed, so that the same name
// later served with another key is noticed.
class HostPinStore {
 public:
  virtual ~HostPinStore() = default;
  virtual std::optional<std::string> pinnedFingerprint(std::string_view hostName) = 0;
  virtual void pin(std::string_view hostName, std::string_view fingerprint) = 0;
};

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
