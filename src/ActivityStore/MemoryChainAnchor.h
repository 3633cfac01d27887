#pragma once

#include <mutex>

#include "ActivityStore/ChainAnchor.h"

namespace quorvane {

// An anchor held in memory, for tests and previews: the key it was made with, and the ends.
class MemoryChainAnchor final : public ChainAnchor {
 public:
  explicit MemoryChainAnchor(std::optional<SecureBytes> key = std::nullopt) : k_(std::move(key)) {}

  std::optional<SecureBytes> chainKey() override;
  std::optional<ChainEnd> head() override;
  std::optional<ChainEnd> start() override;
  void setHead(const std::optional<ChainEnd>& head) override;
  void setStart(const std::optional<ChainEnd>& start) override;

 private:
  std::mutex lock_;
  std::optional<SecureBytes> k_;  // guarded by lock_
  std::optional<ChainEnd> h_;     // guarded by lock_
  std::optional<ChainEnd> s_;     // guarded by lock_
};

}  // namespace quorvane
