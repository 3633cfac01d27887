#pragma once

#include <mutex>
#include <vector>

#include "ActivityModel/ActivityLog.h"

namespace quorvane {

// A log held in memory, for tests of the layers above and for previews. Entries pass through
// their JSON text on the way in, as they do in the real log (dates lose their fractions).
class InMemoryActivityLog final : public ActivityLog {
 public:
  void append(const ActivityEntry& entry) override;
  std::vector<ActivityEntry> entries(const ActivityQuery& query) override;

 private:
  struct Stored {
    std::string text;
    ActivityEntry entry;
  };
  std::mutex mutex_;
  std::vector<Stored> stored_;  // guarded by mutex_, oldest first
};

}  // namespace quorvane
