#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "AgentState/HostPinStore.h"
#include "AgentState/SupportState.h"
#include "Base/JSONReader.h"
#include "Base/Mutex.h"

namespace quorvane {

// Host pins in the sealed file "hosts.json" (purpose "hosts"): an object from host name to
// host key fingerprint. A file that cannot be read holds no pins. The pins are read and verified
// once and then kept in memory; `pin` writes through to the file, `reload` reads it again.
class SealedHostPinStore final : public HostPinStore {
 public:
  explicit SealedHostPinStore(SupportState support);
  std::optional<std::string> pinnedFingerprint(std::string_view hostName) override;
  void pin(std::string_view hostName, std::string_view fingerprint) override;
  void reload() override;

 private:
  // The pins as last read or written; reads the file first when nothing is held.
  JSON& pinsLocked() REQUIRES(mutex_);

  SupportState support_;
  Mutex mutex_;
  std::optional<JSON> pins_ GUARDED_BY(mutex_);  // nothing until read
};

}  // namespace quorvane
