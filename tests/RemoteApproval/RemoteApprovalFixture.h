#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <future>
#include <memory>
#include <thread>
#include <vector>

#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/Notices.h"
#include "ApprovalProto/ProtocolTime.h"
#include "Base/Mutex.h"
#include "Base/Random.h"
#include "RelayClient/InMemoryRelay.h"
#include "RemoteApproval/RemoteApprovalService.h"
#include "SSHWire/SSHPublicKey.h"
#include "support/TestSupport.h"

namespace quorvane::testing {

// A paired device on the far side of an in-memory relay: its own keys and mailbox, and what it
// does with them (read requests and notices, answer).
struct FarDevice {
  DeviceKeys keys;
  MailboxCredentials mailbox;
  DeviceIdentity mac;
  std::shared_ptr<InMemoryRelay> relay;
  std::vector<Envelope> unread;

  // The envelopes that arrived since the last call, waiting up to a few seconds for `count`.
  std::vector<Envelope> receive(EnvelopeKind kind, size_t count = 1) {
    std::vector<Envelope> found;
    eventually(
        [&] {
          for (RelayMessage& message : relay->fetch(mailbox, false))
            unread.push_back(std::move(message.envelope));
          return std::ranges::count(unread, kind, &Envelope::kind) >= static_cast<long>(count);
        },
        std::chrono::seconds(5));
    std::erase_if(unread, [&](Envelope& envelope) {
      if (envelope.kind != kind) return false;
      found.push_back(std::move(envelope));
      return true;
    });
    return found;
  }

  // Whether anything at all arrived (without waiting).
  bool receivedNothing() {
    for (RelayMessage& message : relay->fetch(mailbox, false))
      unread.push_back(std::move(message.envelope));
    return unread.empty();
  }

  ApprovalRequestMessage nextRequest() {
    std::vector<Envelope> requests = receive(EnvelopeKind::approvalRequest);
    if (requests.empty()) throw std::runtime_error("no request arrived");
    const DeviceIdentity macs[] = {mac};
    return openApprovalRequest(requests.front().body, keys, macs).request;
  }

  Envelope answerFor(const ApprovalRequestMessage& request, ApprovalDecision decision,
                     qap::ApprovalScope scope = qap::ApprovalScope::once) const {
    ApprovalResponseMessage response{request.requestID,
                                     request.macID,
                                     keys.identity().identityHash(),
                                     decision,
                                     scope,
                                     request.dataHash,
                                     millisecondsSince1970(SystemClock().now()),
                                     true};
    return sealApprovalResponse(response, keys, mac);
  }

  void send(const MailboxCredentials& macMailbox, const Envelope& envelope) {
    relay->send(addressOf(macMailbox), envelope, false);
  }
};

class RemoteApprovalTest : public ::testing::Test {
 protected:
  std::shared_ptr<InMemoryRelay> relay = std::make_shared<InMemoryRelay>(5);
  DeviceKeys mac = DeviceKeys::generate("laptop");
  MailboxCredentials macMailbox = relay->createMailbox(false);
  std::shared_ptr<Clock> clock = std::make_shared<SystemClock>();
  Bytes keyBlob = bytesOf("a key blob of the test key");
  std::string keyFingerprint = fingerprint(keyBlob);

  Mutex devicesMutex;
  std::vector<PairedDevice> paired GUARDED_BY(devicesMutex);
  std::atomic<int> sleeps{0};
  Mutex eventsMutex;
  std::vector<bool> offlineChanges GUARDED_BY(eventsMutex);
  std::vector<Bytes> unpaired GUARDED_BY(eventsMutex);

  // A device paired with this computer, allowed for `allowedKeys` (absent: every key).
  FarDevice pair(const std::string& name,
                 std::optional<std::set<std::string>> allowedKeys = std::nullopt) {
    FarDevice device{
        DeviceKeys::generate(name), relay->createMailbox(false), mac.identity(), relay, {}};
    PairedDevice record;
    record.identity = device.keys.identity();
    record.mailbox = addressOf(device.mailbox);
    record.pairedAt = clock->now();
    record.allowedKeys = std::move(allowedKeys);
    record.kind = DeviceKind::mac;
    MutexLock lock(devicesMutex);
    paired.push_back(record);
    return device;
  }

  std::unique_ptr<RemoteApprovalService> makeService(
      std::function<void(const Bytes&)> afterSend = nullptr) {
    RemoteApprovalService::Options options;
    options.onUnpair = [this](const Bytes& id) {
      MutexLock lock(eventsMutex);
      unpaired.push_back(id);
    };
    options.onOfflineChange = [this](bool offline) {
      MutexLock lock(eventsMutex);
      offlineChanges.push_back(offline);
    };
    options.sleep = [this](double, std::stop_token stop) {
      ++sleeps;
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
      return !stop.stop_requested();
    };
    options.afterSend = std::move(afterSend);
    return std::make_unique<RemoteApprovalService>(
        relay, mac, macMailbox,
        [this] {
          MutexLock lock(devicesMutex);
          return paired;
        },
        clock, std::move(options));
  }

  ApprovalRequest request(double seconds = 60, bool windowAllowed = true) {
    ApprovalRequest request;
    request.id = UUID::random();
    request.key.name = "deploy";
    request.key.publicKeyBlob = keyBlob;
    request.purpose.value = RequestPurpose::Signature{"git"};
    request.origin.appName = "git";
    request.origin.appTeamID = "system";
    request.origin.chainPaths = {"/usr/bin/ssh", "/usr/bin/git"};
    request.origin.workingDirectory = "/home/user/project";
    request.origin.gitHint = GitHint::push;
    request.decision = Decision::askRemote;
    request.windowAllowed = windowAllowed;
    request.dataHash = crypto::randomBytes(32);
    request.expiresAt = clock->now() + seconds;
    request.reason = "git for sign a Git commit with key “deploy”";
    return request;
  }

  std::vector<bool> offlineHistory() {
    MutexLock lock(eventsMutex);
    return offlineChanges;
  }
};

// Runs `service.ask` on a thread of its own.
inline std::future<RemoteApprovalService::Asked> askLater(RemoteApprovalService& service,
                                                          const ApprovalRequest& request,
                                                          std::stop_token stop = {}) {
  return std::async(std::launch::async,
                    [&service, request, stop] { return service.ask(request, stop); });
}

}  // namespace quorvane::testing
