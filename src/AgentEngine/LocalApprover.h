#pragma once

#include <condition_variable>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <vector>

#include "AgentEngine/Approval.h"
#include "Base/Mutex.h"
#include "Platform/Clock.h"

namespace quorvane {

// Approval on this machine: each request is published to the frontends that watch (a terminal
// prompt, `quorvane approve`) and waits for the first answer, for its expiry, or for its stop
// token. Safe to use from many threads.
class LocalApprover final : public Approver {
 public:
  // How a request ended: an answer, its expiry, or a cancellation (its client hung up, or the
  // agent withdrew it).
  enum class Ending { answered, expired, cancelled };
  // A request appeared (`request` set) or ended (`request` empty, `ending` says how).
  struct Event {
    UUID id;
    std::optional<ApprovalRequest> request;
    Ending ending = Ending::answered;
  };
  using Listener = std::function<void(const Event&)>;

  explicit LocalApprover(Clock& clock);

  ApprovalResult requestApproval(const ApprovalRequest& request, std::stop_token stop) override;

  // The requests waiting now, oldest first.
  std::vector<ApprovalRequest> pending() const;
  std::optional<ApprovalRequest> find(const UUID& id) const;
  // Answers a waiting request. False when no request with this id waits (already answered,
  // expired, or never existed): the first answer wins.
  bool answer(const UUID& id, ApprovalResult result);

  // Listeners are called without the board's lock held, from the thread that changes the board.
  // Once `unsubscribe` returns, its listener is not running and is never called again, so a
  // listener may refer to its subscriber's stack.
  int subscribe(Listener listener);
  void unsubscribe(int token);

 private:
  struct Waiting {
    ApprovalRequest request;
    std::optional<ApprovalResult> result;
    uint64_t order = 0;
  };
  // One subscription. A call holds `calling`; unsubscribing clears `listener` under it.
  struct Subscription {
    explicit Subscription(Listener call) : listener(std::move(call)) {}
    Mutex calling;
    Listener listener GUARDED_BY(calling);
  };
  void notify(const Event& event);

  Clock& clock_;
  mutable Mutex mutex_;
  std::condition_variable_any answered_;
  std::map<UUID, Waiting> waiting_ GUARDED_BY(mutex_);
  uint64_t nextOrder_ GUARDED_BY(mutex_) = 0;
  Mutex listenersMutex_;
  std::map<int, std::shared_ptr<Subscription>> listeners_ GUARDED_BY(listenersMutex_);
  int nextListener_ GUARDED_BY(listenersMutex_) = 0;
};

}  // namespace quorvane
