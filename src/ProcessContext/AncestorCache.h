#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <utility>

#include "ProcessContext/ProcessInfoEntry.h"

namespace quorvane {

// Descriptions of ancestor processes made recently, so that a client that connects many times a
// second (a build signing many commits, a load test) does not have its unchanged ancestry read,
// redacted and checked again each time. A description is reused only for the same process
// instance (pid and start time) still running the same executable file (device and inode), and
// only for kFreshness: a shell that changed its folder, or a process that started itself again
// with other arguments, is seen within that time. The peer itself is never taken from here.
// Safe on any thread.
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

  std::optional<ProcessInfoEntry> find(const Key& key, std::chrono::steady_clock::time_point now);
  void store(const Key& key, ProcessInfoEntry entry, std::chrono::steady_clock::time_point now);

 private:
  struct Stored {
    ProcessInfoEntry entry;
    std::chrono::steady_clock::time_point madeAt;
  };

  std::mutex mutex_;
  std::map<Key, Stored> entries_;  // guarded by mutex_
};

}  // namespace quorvane
