#pragma once

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
  // Forgets what was read, so that the next question reads the stored pins again.
  virtual void reload() {}
};

}  // namespace quorvane
