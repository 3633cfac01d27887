#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <vector>

#include "ProcessContext/ProcessInfoEntry.h"

namespace quorvane {

// Processes described recently, each with the ancestry above it, so that a client that connects
// many times a second (a build signing many commits, an editor, a load test) does not have its
// unchanged ancestry read, redacted and checked again each time. A description is reused only for
// the same process instance (pid and start time) still running the same executable file (device
// and inode), and only for kFreshness: a shell that changed its folder, a process that started
// itself again with other arguments, or an ancestor that exited is seen within that time. The peer
// itself is always described afresh. Safe on any thread.
class AncestorCache {
 public:
  static constexpr std::chrono::seconds kFreshness{5};
  static constexpr size_t kCapacity = 512;

  struct Key {
    pid_t pid = 0;
    uint64_t startTime = 0;
    dev_t device = 0;
    ino_t inode = 0;
    friend auto operator<=>(const Key&, const Key&) = default;
  };

  struct Described {
    ProcessInfoEntry entry;
    // Its parent first, then the parent's parent and so on.
    std::vector<ProcessInfoEntry> ancestors;
    friend bool operator==(const Described&, const Described&) = default;
  };

  std::optional<Described> find(const Key& key, std::chrono::steady_clock::time_point now);
  void store(const Key& key, Described described, std::chrono::steady_clock::time_point now);

 private:
  struct Stored {
    Described described;
    std::chrono::steady_clock::time_point madeAt;
  };

  std::mutex mutex_;
  std::map<Key, Stored> entries_;  // guarded by mutex_
};

}  // namespace quorvane
