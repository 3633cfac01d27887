#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <thread>
#include <vector>

#include "AgentEngine/Approval.h"
#include "ApprovalProto/DeviceKeys.h"
#include "ApprovalProto/Notices.h"
#include "ApprovalProto/PendingApprovals.h"
#include "ApprovalProto/QAPFailure.h"
#include "Base/Mutex.h"
#include "Pairing/PairedDevice.h"
#include "Platform/Clock.h"
#include "RelayClient/MailboxPoller.h"
#include "RelayClient/RelayTransport.h"

namespace quorvane {

// Asks the paired devices: seals each approval request to every device allowed for the key,
// sends it to the device's mailbox through the relay, and waits for the first answer that passes
// PendingApprovals' checks, which arrives in this computer's own mailbox. One poll thread reads
// what the mailbox holds once at the start (unpair notices sent while the agent was not running),
// then keeps a waiting fetch open on it while any request is open (and none otherwise); a second
// thread sends the "resolved" notices that tell devices a request was settled elsewhere. The
// devices are read anew for every request and every answer, so that pairing changes count at
// once. Safe to use from many threads.
class RemoteApprovalService final : public Approver {
 public:
  // The paired devices as they are now (may throw: that request then asks nobody).
  using DeviceList = std::function<std::vector<PairedDevice>()>;

  struct Options {
    // Called with a device's identity hash when that device announces that it unpaired.
    std::function<void(const Bytes& deviceID)> onUnpair;
    // Called when the relay turns unreachable (true) or reachable again (false), without the
    // service's lock held, from the thread that noticed.
    std::function<void(bool offline)> onOfflineChange;
    // Lines worth telling the user: a refused answer's kind, a device list that cannot be read.
    std::function<void(const std::string&)> report;
    // The poller's sleep between failed fetches (tests make it instant).
    PollSleep sleep = sleepUnlessStopped;
    // Called on the asking thread once a request went out, before it waits (tests and the
    // benchmark time the exchange with it).
    std::function<void(const Bytes& requestID)> afterSend;
  };

  // How many refused answers' kinds are kept.
  static constexpr size_t kRejectedKept = 100;

  RemoteApprovalService(std::shared_ptr<RelayTransport> relay, DeviceKeys mac,
                        MailboxCredentials mailbox, DeviceList devices,
                        std::shared_ptr<Clock> clock, Options options);
  // Stops both threads; notices not sent yet are dropped (the devices see the request expire).
  ~RemoteApprovalService() override;
  RemoteApprovalService(const RemoteApprovalService&) = delete;
  RemoteApprovalService& operator=(const RemoteApprovalService&) = delete;

  // What asking the devices came to.
  struct Asked {
    enum class Status {
      asked,          // the request went out; `result` is the answer, Expired or Cancelled
      nobodyAllowed,  // no paired device may approve for the key: nothing was sent
      unreachable,    // no send reached the relay: the relay is offline
    };
    Status status = Status::asked;
    ApprovalResult result;
  };

  // Sends the request and waits for an answer, the request's expiry (Expired) or a stop of `stop`
  // (Cancelled; the devices asked are told with a resolved notice).
  Asked ask(const ApprovalRequest& request, std::stop_token stop);

  // As ask, for use as an Approver alone: nobody to ask, or an unreachable relay, is Cancelled.
  ApprovalResult requestApproval(const ApprovalRequest& request, std::stop_token stop) override;

  // Whether the relay failed at the last send or fetch (false until something failed).
  bool offline() const;
  // The kinds of the refused answers, oldest first (at most kRejectedKept).
  std::vector<QAPFailureKind> rejected() const;
  // How many requests wait for an answer, and how many answers wait for their caller.
  size_t openRequests() const;
  size_t earlyResults() const;

 private:
  struct Notice {
    PairedDevice device;
    ResolvedNotice notice;
  };

  Asked waitForAnswer(const Bytes& requestID, Date expiresAt, std::stop_token stop);
  // Sends `message` to each device; how many sends the relay took.
  size_t sendToDevices(const ApprovalRequestMessage& message,
                       const std::vector<PairedDevice>& devices, std::stop_token stop);
  // Removes an open request that ends without an accepted answer; the devices it went to.
  std::vector<PairedDevice> withdraw(const Bytes& requestID) REQUIRES(mutex_);
  void tellResolved(const Bytes& requestID, const std::vector<PairedDevice>& devices)
      REQUIRES(mutex_);
  void stopPollingIfIdle() REQUIRES(mutex_);
  void setOffline(bool offline);
  void reject(QAPFailureKind kind);
  void tell(const std::string& line) const;

  void pollLoop(std::stop_token stop);
  void catchUp(std::stop_token stop);
  // `quiet`: a refused message is neither reported nor kept in `rejected`.
  void onMessage(const RelayMessage& message, bool quiet);
  void onAnswer(const Envelope& envelope);
  void withdrawAllowances(const std::vector<PairedDevice>& devices) REQUIRES(mutex_);
  void onUnpairNotice(const Envelope& envelope);
  void outboxLoop(std::stop_token stop);

  const std::shared_ptr<RelayTransport> relay_;
  const DeviceKeys mac_;
  const Bytes macID_;
  const MailboxCredentials mailbox_;
  const DeviceList devices_;
  const std::shared_ptr<Clock> clock_;
  const Options options_;

  mutable Mutex mutex_;
  std::condition_variable_any changed_;  // a request opened or was answered; a notice queued
  PendingApprovals pending_ GUARDED_BY(mutex_);
  // Callers waiting, by request ID, with the answer once it came.
  std::map<Bytes, std::optional<ApprovalResult>> waiting_ GUARDED_BY(mutex_);
  std::map<Bytes, std::vector<PairedDevice>> targets_ GUARDED_BY(mutex_);
  // Answers that came before their caller started to wait.
  std::map<Bytes, ApprovalResult> early_ GUARDED_BY(mutex_);
  std::deque<QAPFailureKind> rejected_ GUARDED_BY(mutex_);
  std::deque<Notice> outbox_ GUARDED_BY(mutex_);
  bool offline_ GUARDED_BY(mutex_) = false;
  // The current polling round, stopped when no request is open any more.
  std::optional<std::stop_source> round_ GUARDED_BY(mutex_);

  // Last, so that they stop before the state they use goes.
  std::jthread outboxThread_;
  std::jthread pollThread_;
};

}  // namespace quorvane
