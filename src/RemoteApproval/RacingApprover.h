#pragma once

#include <functional>
#include <memory>

#include "AgentEngine/Approval.h"
#include "RemoteApproval/RemoteApprovalService.h"

namespace quorvane {

// Asks on this computer and on the paired devices at once; the first answer decides. Only
// requests that the policy sends to paired devices (askRemote) go there, and only while `remote`
// gives a service (it gives none when nothing is paired, remote approval is paused or not set
// up). The loser is withdrawn: a device's answer ends the local request, and an answer here
// makes the service tell the devices that the request was resolved. When the devices cannot be
// asked (nobody may approve for the key, or the relay is offline), the local approver decides
// alone.
class RacingApprover final : public Approver {
 public:
  using RemoteService = std::function<std::shared_ptr<RemoteApprovalService>()>;
  // Ends the local request with a device's answer, as if it had been given here; false when the
  // local request is no longer waiting. Empty: the local request is cancelled instead.
  using SettleLocal = std::function<bool(const UUID&, const ApprovalResult&)>;

  RacingApprover(std::shared_ptr<Approver> local, RemoteService remote,
                 SettleLocal settleLocal = nullptr)
      : local_(std::move(local)),
        remote_(std::move(remote)),
        settleLocal_(std::move(settleLocal)) {}

  ApprovalResult requestApproval(const ApprovalRequest& request, std::stop_token stop) override;

 private:
  std::shared_ptr<Approver> local_;
  RemoteService remote_;
  SettleLocal settleLocal_;
};

}  // namespace quorvane
