#include "RemoteApproval/RacingApprover.h"

#include <optional>
#include <thread>

#include "Base/Mutex.h"

namespace quorvane {
namespace {

// Answers that end a race: an approval or a denial. Expiry and cancellation leave it to the other
// side.
bool decides(const ApprovalResult& result) {
  return std::holds_alternative<ApprovalResult::Approved>(result.value) ||
         std::holds_alternative<ApprovalResult::Denied>(result.value);
}

// The first side's answer; later ones are ignored.
class Verdict {
 public:
  // False when the other side came first.
  bool claim(const ApprovalResult& result) {
    MutexLock lock(mutex_);
    if (result_) return false;
    result_ = result;
    return true;
  }
  ApprovalResult take() {
    MutexLock lock(mutex_);
    return result_ ? std::move(*result_) : ApprovalResult{ApprovalResult::Cancelled{}};
  }

 private:
  Mutex mutex_;
  std::optional<ApprovalResult> result_ GUARDED_BY(mutex_);
};

}  // namespace

ApprovalResult RacingApprover::requestApproval(const ApprovalRequest& request,
                                               std::stop_token stop) {
  std::shared_ptr<RemoteApprovalService> service;
  if (request.decision == Decision::askRemote && remote_) service = remote_();
  if (!service) return local_->requestApproval(request, stop);

  std::stop_source localStop;
  std::stop_source remoteStop;
  std::stop_callback forward(stop, [&] {
    localStop.request_stop();
    remoteStop.request_stop();
  });
  Verdict verdict;
  std::jthread remoteSide([&] {
    RemoteApprovalService::Asked asked = service->ask(request, remoteStop.get_token());
    if (asked.status != RemoteApprovalService::Asked::Status::asked || !decides(asked.result))
      return;
    // Ending the local request with the device's answer makes the local side return it; when
    // the local request is gone already, the answer claims the race itself.
    if (settleLocal_ && settleLocal_(request.id, asked.result)) return;
    if (verdict.claim(asked.result)) localStop.request_stop();
  });
  verdict.claim(local_->requestApproval(request, localStop.get_token()));
  remoteStop.request_stop();
  remoteSide.join();
  return verdict.take();
}

}  // namespace quorvane
