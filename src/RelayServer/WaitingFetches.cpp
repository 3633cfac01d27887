#include "RelayServer/WaitingFetches.h"

#include <vector>

namespace quorvane::relay {

WaitingFetches::Ticket WaitingFetches::add(const std::string& mailboxId, Wake wake) {
  MutexLock lock(mutex_);
  Ticket ticket = nextTicket_++;
  byMailbox_.emplace(mailboxId, std::make_pair(ticket, std::move(wake)));
  mailboxOf_.emplace(ticket, mailboxId);
  return ticket;
}

bool WaitingFetches::remove(Ticket ticket) {
  MutexLock lock(mutex_);
  auto found = mailboxOf_.find(ticket);
  if (found == mailboxOf_.end()) return false;
  auto [first, last] = byMailbox_.equal_range(found->second);
  for (auto it = first; it != last; ++it) {
    if (it->second.first == ticket) {
      byMailbox_.erase(it);
      break;
    }
  }
  mailboxOf_.erase(found);
  return true;
}

void WaitingFetches::wake(const std::string& mailboxId) {
  std::vector<Wake> woken;
  {
    MutexLock lock(mutex_);
    auto [first, last] = byMailbox_.equal_range(mailboxId);
    for (auto it = first; it != last; ++it) {
      mailboxOf_.erase(it->second.first);
      woken.push_back(std::move(it->second.second));
    }
    byMailbox_.erase(first, last);
  }
  for (Wake& wakeUp : woken) wakeUp();
}

void WaitingFetches::wakeAll() {
  std::vector<Wake> woken;
  {
    MutexLock lock(mutex_);
    for (auto& [mailbox, waiter] : byMailbox_) woken.push_back(std::move(waiter.second));
    byMailbox_.clear();
    mailboxOf_.clear();
  }
  for (Wake& wakeUp : woken) wakeUp();
}

size_t WaitingFetches::count() {
  MutexLock lock(mutex_);
  return mailboxOf_.size();
}

}  // namespace quorvane::relay
