// Machine time of one remote approval, as the agent's remote approval service sees it: from the
// request handed to the service to the paired device holding the opened request (seal, send,
// the device's waiting fetch, open), and from the device's answer (seal, send) to the service
// returning the result (the service's waiting fetch, open, the ordered checks). Reports the
// median and the 99th percentile of each over ROUNDS requests, one at a time.
//
// Without settings it runs over the in-memory relay. With QUORVANE_BENCH_RELAY_URL (and, for a
// relay with a private certificate authority, QUORVANE_BENCH_RELAY_CA naming its PEM file) it
// runs over that relay with the HTTPS client, making two mailboxes there and deleting them after.
//
//   remote_approval_bench [ROUNDS]      (default 200)
#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <string>
#include <vector>

#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/ProtocolTime.h"
#include "Base/Random.h"
#include "RelayClient/InMemoryRelay.h"
#include "RelayClient/RelayClient.h"
#include "RemoteApproval/RemoteApprovalService.h"

namespace quorvane {
namespace {

using Clock = std::chrono::steady_clock;

double millisecondsBetween(Clock::time_point from, Clock::time_point to) {
  return std::chrono::duration<double, std::milli>(to - from).count();
}

struct Summary {
  double median = 0;
  double p99 = 0;
};

Summary summarise(std::vector<double> samples) {
  std::ranges::sort(samples);
  const auto at = [&](double quantile) {
    const size_t rank = static_cast<size_t>(std::ceil(quantile * samples.size()));
    return samples[std::clamp<size_t>(rank, 1, samples.size()) - 1];
  };
  return {at(0.5), at(0.99)};
}

std::shared_ptr<RelayTransport> relayFromEnvironment(std::string& description) {
  const char* url = std::getenv("QUORVANE_BENCH_RELAY_URL");
  if (url == nullptr || *url == '\0') {
    description = "in-memory relay";
    return std::make_shared<InMemoryRelay>();
  }
  RelayEndpoint endpoint{url, std::nullopt, {}};
  if (const char* ca = std::getenv("QUORVANE_BENCH_RELAY_CA"); ca != nullptr && *ca != '\0')
    endpoint.caFile = ca;
  description = std::string("relay ") + url + " over the HTTPS client";
  return std::make_shared<RelayClient>(endpoint);
}

ApprovalRequest benchRequest(SystemClock& clock) {
  ApprovalRequest request;
  request.id = UUID::random();
  request.key.name = "bench key";
  request.key.publicKeyBlob = bytesOf("bench key blob");
  request.purpose.value = RequestPurpose::Signature{"git"};
  request.origin.appName = "git";
  request.origin.chainPaths = {"/usr/bin/ssh", "/usr/bin/git", "/usr/bin/bash"};
  request.origin.workingDirectory = "/home/user/project";
  request.decision = Decision::askRemote;
  request.windowAllowed = true;
  request.dataHash = crypto::randomBytes(32);
  request.expiresAt = clock.now() + 60;
  return request;
}

int run(int rounds) {
  std::string description;
  std::shared_ptr<RelayTransport> relay = relayFromEnvironment(description);
  // The device reads with a client of its own, as a separate program would.
  std::shared_ptr<RelayTransport> deviceRelay = relay;
  if (dynamic_cast<RelayClient*>(relay.get()) != nullptr)
    deviceRelay = std::make_shared<RelayClient>(dynamic_cast<RelayClient&>(*relay).endpoint());

  const MailboxCredentials macMailbox = relay->createMailbox(false);
  const MailboxCredentials deviceMailbox = deviceRelay->createMailbox(false);
  const DeviceKeys mac = DeviceKeys::generate("bench computer");
  const DeviceKeys device = DeviceKeys::generate("bench device");
  PairedDevice paired;
  paired.identity = device.identity();
  paired.mailbox = addressOf(deviceMailbox);
  const DeviceIdentity macs[] = {mac.identity()};

  auto clock = std::make_shared<SystemClock>();
  std::vector<double> toDevice;
  std::vector<double> toAgent;
  {
    RemoteApprovalService service(relay, mac, macMailbox, [&] { return std::vector{paired}; },
                                  clock, {});
    for (int round = 0; round < rounds; ++round) {
      const ApprovalRequest request = benchRequest(*clock);
      const Clock::time_point asked = Clock::now();
      auto answer = std::async(std::launch::async, [&] { return service.ask(request, {}); });
      std::optional<ApprovalRequestMessage> received;
      for (int fetches = 0; !received; ++fetches) {
        if (fetches == 3)
          throw std::runtime_error("round " + std::to_string(round) +
                                   ": the request did not reach the device (a full mailbox on "
                                   "the relay refuses further sends)");
        for (const RelayMessage& message : deviceRelay->fetch(deviceMailbox, true))
          if (message.envelope.kind == EnvelopeKind::approvalRequest)
            received = openApprovalRequest(message.envelope.body, device, macs).request;
      }
      const Clock::time_point arrived = Clock::now();
      const Clock::time_point answering = Clock::now();
      ApprovalResponseMessage response{received->requestID,
                                       received->macID,
                                       device.identity().identityHash(),
                                       ApprovalDecision::approve,
                                       qap::ApprovalScope::once,
                                       received->dataHash,
                                       millisecondsSince1970(clock->now()),
                                       true};
      deviceRelay->send(addressOf(macMailbox),
                        sealApprovalResponse(response, device, mac.identity()), false);
      const RemoteApprovalService::Asked result = answer.get();
      const Clock::time_point decided = Clock::now();
      if (!std::holds_alternative<ApprovalResult::Approved>(result.result.value)) {
        std::fprintf(stderr, "round %d was not approved\n", round);
        return 1;
      }
      toDevice.push_back(millisecondsBetween(asked, arrived));
      toAgent.push_back(millisecondsBetween(answering, decided));
    }
  }
  relay->deleteMailbox(macMailbox);
  deviceRelay->deleteMailbox(deviceMailbox);

  const Summary out = summarise(toDevice);
  const Summary back = summarise(toAgent);
  std::printf("remote approval over the %s, %d rounds\n", description.c_str(), rounds);
  std::printf("  request to the device holding it:  median %8.3f ms   p99 %8.3f ms\n", out.median,
              out.p99);
  std::printf("  device's answer to the result:     median %8.3f ms   p99 %8.3f ms\n", back.median,
              back.p99);
  return 0;
}

}  // namespace
}  // namespace quorvane

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : 200;
  if (rounds <= 0) {
    std::fprintf(stderr, "usage: remote_approval_bench [ROUNDS]   (ROUNDS > 0)\n");
    return 2;
  }
  try {
    return quorvane::run(rounds);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "remote_approval_bench: %s\n", error.what());
    return 1;
  }
}
