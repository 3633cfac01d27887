#pragma once

#include <string>

#include "ApproverSession/RelayDirectory.h"
#include "RelayClient/InMemoryRelay.h"

namespace quorvane::testing {

// Every relay URL leads to the one in-memory relay.
class OneRelay final : public RelayDirectory {
 public:
  explicit OneRelay(InMemoryRelay& relay) : relay_(relay) {}
  RelayConnection connect(const std::string&) override { return {relay_, relay_.cursors()}; }

 private:
  InMemoryRelay& relay_;
};

}  // namespace quorvane::testing
