#include "RemoteApproval/RemoteApprovalService.h"

#include <algorithm>
#include <chrono>

#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/ProtocolTime.h"
#include "RelayClient/RelayError.h"
#include "RemoteApproval/RemoteAnswer.h"
#include "RemoteApproval/RemoteRequestMessage.h"
#include "SSHWire/SSHPublicKey.h"

namespace quorvane {
namespace {

std::vector<DeviceIdentity> identitiesOf(const std::vector<PairedDevice>& devices) {
  std::vector<DeviceIdentity> identities;
  identities.reserve(devices.size());
  for (const PairedDevice& device : devices) identities.push_back(device.identity);
  return identities;
}

// Phones and watches sleep until the relay wakes them; computers keep their own fetch open.
bool wantsPush(const PairedDevice& device) {
  return device.kind == DeviceKind::phone || device.kind == DeviceKind::watch;
}

}  // namespace

RemoteApprovalService::RemoteApprovalService(std::shared_ptr<RelayTransport> relay, DeviceKeys mac,
                                             MailboxCredentials mailbox, DeviceList devices,
                                             std::shared_ptr<Clock> clock, Options options)
    : relay_(std::move(relay)),
      mac_(std::move(mac)),
      macID_(identityHash(mac_.signer->publicKey())),
      mailbox_(std::move(mailbox)),
      devices_(std::move(devices)),
      clock_(std::move(clock)),
      options_(std::move(options)),
      outboxThread_([this](std::stop_token stop) { outboxLoop(stop); }),
      pollThread_([this](std::stop_token stop) { pollLoop(stop); }) {}

RemoteApprovalService::~RemoteApprovalService() {
  pollThread_.request_stop();
  outboxThread_.request_stop();
  {
    MutexLock lock(mutex_);
    if (round_) round_->request_stop();
  }
  pollThread_.join();
  outboxThread_.join();
}

RemoteApprovalService::Asked RemoteApprovalService::ask(const ApprovalRequest& request,
                                                        std::stop_token stop) {
  std::vector<PairedDevice> allowed;
  try {
    const std::string keyFingerprint = fingerprint(request.key.publicKeyBlob);
    for (PairedDevice& device : devices_())
      if (device.allows(keyFingerprint)) allowed.push_back(std::move(device));
  } catch (const std::exception& error) {
    tell(std::string("the paired devices could not be read: ") + error.what());
  }
  if (allowed.empty()) return {Asked::Status::nobodyAllowed, {ApprovalResult::Cancelled{}}};

  const Date now = clock_->now();
  const ApprovalRequestMessage message = remoteRequestMessage(request, macID_, now);
  const Bytes& id = message.requestID;
  {
    std::set<Bytes> allowedIDs;
    for (const PairedDevice& device : allowed) allowedIDs.insert(device.identity.identityHash());
    MutexLock lock(mutex_);
    pending_.dropAnsweredExpiredBy(millisecondsSince1970(now));
    pending_.registerRequest(message, std::move(allowedIDs));
    targets_[id] = allowed;
  }
  changed_.notify_all();  // the poll thread starts a round

  const size_t sent = sendToDevices(message, allowed, stop);
  if (sent == 0) {
    {
      MutexLock lock(mutex_);
      withdraw(id);
    }
    // Stopped before anything went out: no device has anything to be told.
    if (stop.stop_requested()) return {Asked::Status::asked, {ApprovalResult::Cancelled{}}};
    // Every device refused or was out of reach. A device that unpaired itself revoked its send
    // token and left a notice here: read it now, since no polling round follows this request.
    catchUp(stop);
    setOffline(true);
    return {Asked::Status::unreachable, {ApprovalResult::Cancelled{}}};
  }
  setOffline(false);
  if (options_.afterSend) options_.afterSend(id);
  return waitForAnswer(id, request.expiresAt, stop);
}

size_t RemoteApprovalService::sendToDevices(const ApprovalRequestMessage& message,
                                            const std::vector<PairedDevice>& devices,
                                            std::stop_token stop) {
  size_t sent = 0;
  for (const PairedDevice& device : devices) {
    if (stop.stop_requested()) break;
    try {
      relay_->send(device.mailbox, sealApprovalRequest(message, mac_, device.identity),
                   wantsPush(device), stop);
      ++sent;
    } catch (const RelayError&) {
      // One device's mailbox refusing (a revoked token) or a failed send leaves the others.
    } catch (const std::exception& error) {
      tell("a request could not be sealed for " + device.identity.name + ": " + error.what());
    }
  }
  return sent;
}

RemoteApprovalService::Asked RemoteApprovalService::waitForAnswer(const Bytes& requestID,
                                                                  Date expiresAt,
                                                                  std::stop_token stop) {
  const auto deadline =
      std::chrono::steady_clock::now() +
      std::chrono::duration_cast<std::chrono::steady_clock::duration>(
          std::chrono::duration<double>(std::max(0.0, expiresAt.secondsSince(clock_->now()))));
  MutexLock lock(mutex_);
  if (auto early = early_.find(requestID); early != early_.end()) {
    ApprovalResult result = std::move(early->second);
    early_.erase(early);
    return {Asked::Status::asked, std::move(result)};
  }
  waiting_[requestID] = std::nullopt;
  const bool answered = changed_.wait_until(
      mutex_, stop, deadline, [&]() REQUIRES(mutex_) { return waiting_[requestID].has_value(); });
  std::optional<ApprovalResult> result = std::move(waiting_[requestID]);
  waiting_.erase(requestID);
  if (answered && result) return {Asked::Status::asked, std::move(*result)};

  std::vector<PairedDevice> asked = withdraw(requestID);
  if (!stop.stop_requested()) return {Asked::Status::asked, {ApprovalResult::Expired{}}};
  tellResolved(requestID, asked);
  return {Asked::Status::asked, {ApprovalResult::Cancelled{}}};
}

ApprovalResult RemoteApprovalService::requestApproval(const ApprovalRequest& request,
                                                      std::stop_token stop) {
  return ask(request, std::move(stop)).result;
}

std::vector<PairedDevice> RemoteApprovalService::withdraw(const Bytes& requestID) {
  pending_.forget(requestID);
  early_.erase(requestID);
  std::vector<PairedDevice> asked;
  if (auto found = targets_.find(requestID); found != targets_.end()) {
    asked = std::move(found->second);
    targets_.erase(found);
  }
  stopPollingIfIdle();
  return asked;
}

void RemoteApprovalService::tellResolved(const Bytes& requestID,
                                         const std::vector<PairedDevice>& devices) {
  for (const PairedDevice& device : devices)
    outbox_.push_back({device, ResolvedNotice{requestID, macID_}});
  if (!devices.empty()) changed_.notify_all();
}

void RemoteApprovalService::stopPollingIfIdle() {
  if (pending_.open.empty() && round_) round_->request_stop();
}

void RemoteApprovalService::setOffline(bool offline) {
  {
    MutexLock lock(mutex_);
    if (offline_ == offline) return;
    offline_ = offline;
  }
  if (options_.onOfflineChange) options_.onOfflineChange(offline);
}

void RemoteApprovalService::reject(QAPFailureKind kind) {
  {
    MutexLock lock(mutex_);
    rejected_.push_back(kind);
    if (rejected_.size() > kRejectedKept) rejected_.pop_front();
  }
  tell("refused an answer from the relay: " + std::string(QAPFailure::kKindNames.name(kind)));
}

void RemoteApprovalService::tell(const std::string& line) const {
  if (options_.report) options_.report(line);
}

bool RemoteApprovalService::offline() const {
  MutexLock lock(mutex_);
  return offline_;
}

std::vector<QAPFailureKind> RemoteApprovalService::rejected() const {
  MutexLock lock(mutex_);
  return {rejected_.begin(), rejected_.end()};
}

size_t RemoteApprovalService::openRequests() const {
  MutexLock lock(mutex_);
  return pending_.open.size();
}

size_t RemoteApprovalService::earlyResults() const {
  MutexLock lock(mutex_);
  return early_.size();
}

// One round of polling lasts while a request is open; between rounds the thread sleeps and the
// relay hears nothing from this computer.
void RemoteApprovalService::pollLoop(std::stop_token stop) {
  catchUp(stop);
  const PollHandlers handlers{
      [this](const RelayMessage& message) { onMessage(message, /*quiet=*/false); },
      [this](const RelayError&, double) { setOffline(true); },
      [this] { setOffline(false); },
  };
  while (!stop.stop_requested()) {
    std::stop_source round;
    {
      MutexLock lock(mutex_);
      if (!changed_.wait(mutex_, stop, [&]() REQUIRES(mutex_) { return !pending_.open.empty(); }))
        return;
      round_ = round;
    }
    {
      std::stop_callback ending(stop, [&] { round.request_stop(); });
      pollMailbox(*relay_, mailbox_, round.get_token(), handlers, options_.sleep);
    }
    MutexLock lock(mutex_);
    round_.reset();
  }
}

// The relay keeps messages for a day and the read position is not kept from one run to the next,
// so the mailbox may hold what an earlier run read already: answers to requests of that run, which
// can only be refused, and unpair notices, which still count. They are read once at the start,
// without reporting the refusals, so that they neither flood the log nor fill `rejected`.
void RemoteApprovalService::catchUp(std::stop_token stop) {
  try {
    for (const RelayMessage& message : relay_->fetch(mailbox_, /*wait=*/false, stop))
      onMessage(message, /*quiet=*/true);
  } catch (const RelayError&) {
    // Nothing is asked yet; the first request's polling tells whether the relay is there.
  }
}

void RemoteApprovalService::onMessage(const RelayMessage& message, bool quiet) {
  try {
    if (message.envelope.kind == EnvelopeKind::approvalResponse) onAnswer(message.envelope);
    if (message.envelope.kind == EnvelopeKind::unpair) onUnpairNotice(message.envelope);
  } catch (const QAPFailure& failure) {
    if (!quiet) reject(failure.kind());
  } catch (const std::exception& error) {
    tell(std::string("a message from the relay could not be handled: ") + error.what());
  }
}

void RemoteApprovalService::onAnswer(const Envelope& envelope) {
  const std::vector<PairedDevice> devices = devices_();
  const std::vector<DeviceIdentity> candidates = identitiesOf(devices);
  const uint64_t now = millisecondsSince1970(clock_->now());
  {
    MutexLock lock(mutex_);
    pending_.dropAnsweredExpiredBy(now);
    withdrawAllowances(devices);
    PendingApprovals::Accepted accepted = pending_.accept(envelope.body, mac_, candidates, now);
    const PairedDevice& answering = devices[accepted.deviceIndex];
    const Bytes& id = accepted.response.requestID;
    ApprovalResult result = approvalResultOf(accepted.response, answering.identity.name);
    if (auto waiter = waiting_.find(id); waiter != waiting_.end())
      waiter->second = std::move(result);
    else
      early_[id] = std::move(result);
    std::vector<PairedDevice> others;
    if (auto found = targets_.find(id); found != targets_.end()) {
      const Bytes answeringID = answering.identity.identityHash();
      for (PairedDevice& device : found->second)
        if (device.identity.identityHash() != answeringID) others.push_back(std::move(device));
      targets_.erase(found);
    }
    tellResolved(id, others);
    stopPollingIfIdle();
  }
  changed_.notify_all();
}

// A device that may no longer approve for a key (limited to other keys, or removed since the
// request went out) cannot decide a request for that key that it received before.
void RemoteApprovalService::withdrawAllowances(const std::vector<PairedDevice>& devices) {
  for (auto& open : pending_.open) {
    PendingApprovals::Entry& entry = open.second;
    std::erase_if(entry.allowedDevices, [&](const Bytes& deviceID) {
      return std::ranges::none_of(devices, [&](const PairedDevice& device) {
        return device.identity.identityHash() == deviceID &&
               device.allows(entry.request.keyFingerprint);
      });
    });
  }
}

void RemoteApprovalService::onUnpairNotice(const Envelope& envelope) {
  const std::vector<DeviceIdentity> candidates = identitiesOf(devices_());
  OpenedUnpairNotice opened = openUnpairNotice(envelope.body, /*fromMac=*/false, mac_, candidates);
  if (options_.onUnpair) options_.onUnpair(opened.notice.senderID);
}

void RemoteApprovalService::outboxLoop(std::stop_token stop) {
  for (;;) {
    Notice next;
    {
      MutexLock lock(mutex_);
      if (!changed_.wait(mutex_, stop, [&]() REQUIRES(mutex_) { return !outbox_.empty(); })) return;
      next = std::move(outbox_.front());
      outbox_.pop_front();
    }
    try {
      relay_->send(next.device.mailbox, sealResolvedNotice(next.notice, mac_, next.device.identity),
                   false, stop);
    } catch (const std::exception&) {
      // Best effort: a device that misses the notice sees the request expire instead.
    }
  }
}

}  // namespace quorvane
