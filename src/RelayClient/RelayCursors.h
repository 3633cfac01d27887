#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "Base/Mutex.h"

namespace quorvane {

// The read position of each mailbox: the highest sequence number already fetched. Shared by every
// copy of a client; kept in memory for the client's life, never stored. The lock is held only
// for one lookup or update, never across a network call.
class RelayCursors {
 public:
  // The cursor of mailbox `id`; 0 for a mailbox never fetched.
  uint64_t read(const std::string& id) const;
  // Raises the cursor of `id` to `seq`; a lower `seq` leaves it where it is.
  void raise(const std::string& id, uint64_t seq);

 private:
  mutable Mutex mutex_;
  std::map<std::string, uint64_t> seen_ GUARDED_BY(mutex_);
};

}  // namespace quorvane
