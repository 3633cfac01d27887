#include "AgentEngine/Agent.h"

#include "AgentEngine/ApprovalText.h"

namespace quorvane {

Agent::Agent(AgentServices services, PolicyEngine policy)
    : services_(std::move(services)), policy_(std::move(policy)) {
  if (services_.lockStore) locked_ = services_.lockStore->isLocked();
  reasonFormatter_ = [](const KeyRecord& key, const RequestPurpose& purpose,
                        const RequestOrigin& origin, const std::optional<std::string>& host) {
    return approvalReason(origin.appName, purpose, host, key.name);
  };
}

std::vector<AgentResponse::Identity> Agent::identities() const {
  std::vector<AgentResponse::Identity> list;
  for (const KeyRecord& record : services_.keys->records())
    list.push_back({record.publicKeyBlob, record.name});
  return list;
}

void Agent::lockLocked() {
  locked_ = true;
  ++epoch_;
  ++lockGeneration_;
  policy_.clearGrants();
  contexts_.clear();
}

void Agent::lock() {
  {
    MutexLock lock(mutex_);
    lockLocked();
  }
  if (services_.lockStore) services_.lockStore->setLocked(true);
}

void Agent::unlock() {
  {
    MutexLock lock(mutex_);
    locked_ = false;
  }
  if (services_.lockStore) services_.lockStore->setLocked(false);
}

bool Agent::isLocked() const {
  MutexLock lock(mutex_);
  return locked_;
}

void Agent::replaceRules(std::vector<Rule> rules) {
  MutexLock lock(mutex_);
  if (rules == policy_.rules) return;
  policy_.rules = std::move(rules);
  ++epoch_;
}

void Agent::revokeWindows() {
  MutexLock lock(mutex_);
  policy_.clearGrants();
  contexts_.clear();
  ++epoch_;
}

std::vector<DenialBlock> Agent::activeBlocks() const {
  MutexLock lock(mutex_);
  return policy_.limiter.activeBlocks(services_.clock->now());
}

size_t Agent::unblock(const std::function<bool(const DenialBlock&)>& lifted) {
  MutexLock lock(mutex_);
  return policy_.limiter.lift(lifted, services_.clock->now());
}

void Agent::setRemoteApprovalAvailable(bool available) {
  MutexLock lock(mutex_);
  remoteApprovalAvailable_ = available;
}

bool Agent::remoteApprovalAvailable() const {
  MutexLock lock(mutex_);
  return remoteApprovalAvailable_;
}

void Agent::forgetEndedWindows(Date now) {
  MutexLock lock(mutex_);
  forgetEndedWindowsLocked(now);
}

void Agent::forgetEndedWindowsLocked(Date now) {
  std::erase_if(contexts_, [&](const auto& entry) { return entry.second.until <= now; });
}

uint64_t Agent::epoch() const {
  MutexLock lock(mutex_);
  return epoch_;
}

void Agent::setReasonFormatter(ReasonFormatter formatter) {
  MutexLock lock(mutex_);
  reasonFormatter_ = std::move(formatter);
}

}  // namespace quorvane
