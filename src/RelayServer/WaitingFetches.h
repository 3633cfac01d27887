#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <unordered_map>

#include "Base/Mutex.h"

namespace quorvane::relay {

// The fetches that wait for a message, by mailbox. A waiter registers a wake-up function before
// it looks into the store one last time, so that a message arriving in between still wakes it.
// Wake-up functions run on the thread that calls `wake` (outside the lock); they must only hand
// the work on (post it to the waiter's own executor), never block.
class WaitingFetches {
 public:
  using Wake = std::function<void()>;
  using Ticket = uint64_t;

  Ticket add(const std::string& mailboxId, Wake wake);
  // Takes a waiter out; false when it was already woken (its wake-up function has run or runs).
  bool remove(Ticket ticket);
  // Wakes every waiter of a mailbox and forgets them.
  void wake(const std::string& mailboxId);
  // Wakes every waiter (at shutdown).
  void wakeAll();
  size_t count();

 private:
  Mutex mutex_;
  Ticket nextTicket_ GUARDED_BY(mutex_) = 1;
  std::unordered_multimap<std::string, std::pair<Ticket, Wake>> byMailbox_ GUARDED_BY(mutex_);
  std::unordered_map<Ticket, std::string> mailboxOf_ GUARDED_BY(mutex_);
};

}  // namespace quorvane::relay
