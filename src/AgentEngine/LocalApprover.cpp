#include "AgentEngine/LocalApprover.h"

#include <algorithm>
#include <chrono>

namespace quorvane {

LocalApprover::LocalApprover(Clock& clock) : clock_(clock) {}

void LocalApprover::notify(const Event& event) {
  std::vector<std::shared_ptr<Subscription>> subscriptions;
  {
    MutexLock lock(listenersMutex_);
    for (const auto& [token, subscription] : listeners_) subscriptions.push_back(subscription);
  }
  for (const auto& subscription : subscriptions) {
    MutexLock calling(subscription->calling);
    if (subscription->listener) subscription->listener(event);
  }
}

ApprovalResult LocalApprover::requestApproval(const ApprovalRequest& request,
                                              std::stop_token stop) {
  const double remaining = request.expiresAt.secondsSince(clock_.now());
  const auto deadline = std::chrono::steady_clock::now() +
                        std::chrono::duration_cast<std::chrono::steady_clock::duration>(
                            std::chrono::duration<double>(std::max(remaining, 0.0)));
  {
    MutexLock lock(mutex_);
    waiting_.insert_or_assign(request.id, Waiting{request, std::nullopt, nextOrder_++});
  }
  notify({request.id, request, Ending::answered});

  ApprovalResult result{ApprovalResult::Expired{}};
  {
    MutexLock lock(mutex_);
    bool done = answered_.wait_until(mutex_, stop, deadline, [&]() REQUIRES(mutex_) {
      return waiting_.at(request.id).result.has_value();
    });
    if (done)
      result = *waiting_.at(request.id).result;
    else if (stop.stop_requested())
      result = {ApprovalResult::Cancelled{}};
    waiting_.erase(request.id);
  }
  Ending ending = Ending::answered;
  if (std::holds_alternative<ApprovalResult::Expired>(result.value)) ending = Ending::expired;
  if (std::holds_alternative<ApprovalResult::Cancelled>(result.value)) ending = Ending::cancelled;
  notify({request.id, std::nullopt, ending});
  return result;
}

std::vector<ApprovalRequest> LocalApprover::pending() const {
  MutexLock lock(mutex_);
  std::vector<const Waiting*> ordered;
  for (const auto& [id, waiting] : waiting_)
    if (!waiting.result) ordered.push_back(&waiting);
  std::ranges::sort(ordered, {}, &Waiting::order);
  std::vector<ApprovalRequest> requests;
  for (const Waiting* waiting : ordered) requests.push_back(waiting->request);
  return requests;
}

std::optional<ApprovalRequest> LocalApprover::find(const UUID& id) const {
  MutexLock lock(mutex_);
  auto found = waiting_.find(id);
  if (found == waiting_.end() || found->second.result) return std::nullopt;
  return found->second.request;
}

bool LocalApprover::answer(const UUID& id, ApprovalResult result) {
  MutexLock lock(mutex_);
  auto found = waiting_.find(id);
  if (found == waiting_.end() || found->second.result) return false;
  found->second.result = std::move(result);
  answered_.notify_all();
  return true;
}

int LocalApprover::subscribe(Listener listener) {
  MutexLock lock(listenersMutex_);
  listeners_.emplace(nextListener_, std::make_shared<Subscription>(std::move(listener)));
  return nextListener_++;
}

void LocalApprover::unsubscribe(int token) {
  std::shared_ptr<Subscription> subscription;
  {
    MutexLock lock(listenersMutex_);
    auto found = listeners_.find(token);
    if (found == listeners_.end()) return;
    subscription = std::move(found->second);
    listeners_.erase(found);
  }
  // Waits for a call in progress on another thread to end.
  MutexLock calling(subscription->calling);
  subscription->listener = nullptr;
}

}  // namespace quorvane
