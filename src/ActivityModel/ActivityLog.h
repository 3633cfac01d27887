#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "ActivityModel/ActivityEntry.h"
#include "Base/Date.h"

namespace quorvane {

// What to list from the log: entries whose JSON text contains `text` (ASCII letters match either
// case; empty matches every entry) and whose date lies in [from, to], both ends included and
// either open when absent; newest first, at most `limit` of them.
struct ActivityQuery {
  std::string text{};
  std::optional<Date> from{};
  std::optional<Date> to{};
  size_t limit = 500;
};

// The log as the agent and the application use it: write one entry per request, list entries.
// Implementations are safe to call from many threads at once; failures are thrown as the
// implementation's error type.
class ActivityLog {
 public:
  virtual ~ActivityLog() = default;

  virtual void append(const ActivityEntry& entry) = 0;
  virtual std::vector<ActivityEntry> entries(const ActivityQuery& query) = 0;
};

}  // namespace quorvane
