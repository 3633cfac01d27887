// The approving side's own machine time per request, without the network: receiving one sealed
// request from the relay into the inbox file, and answering it (sealing the answer and recording
// it). The relay is in memory; the support folder is a real one in a temporary directory, so the
// sealed inbox's writes are counted.
#include <benchmark/benchmark.h>

#include "AgentState/PairingFiles.h"
#include "AgentState/ProtocolIdentity.h"
#include "ApprovalProto/ApprovalExchange.h"
#include "ApprovalProto/ProtocolTime.h"
#include "ApproverSession/ApproverSession.h"
#include "ApproverSession/OneRelay.h"
#include "ApproverSession/RequestIDs.h"
#include "Base/Random.h"
#include "KeyStore/FixedSealingKey.h"
#include "Platform/InMemoryKeychain.h"
#include "RelayClient/InMemoryRelay.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

constexpr const char* kRelayURL = "https://relay.example/";

using testing::OneRelay;

// One approving side paired with one computer, and the computer's way to send it requests.
struct Pairing {
  testing::TemporaryDirectory folder;
  std::shared_ptr<InMemoryKeychain> keychain = std::make_shared<InMemoryKeychain>();
  SupportState support{keychain, std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))),
                       folder.path()};
  InMemoryRelay relay{0.01};
  OneRelay relays{relay};
  ManualClock clock{Date{1'800'000'000}};
  DeviceKeys approver = DeviceKeys::generate("laptop");
  DeviceKeys computer = DeviceKeys::generate("build-box");
  MailboxCredentials own = relay.createMailbox(false);
  SecureBytes token = relay.createSendToken(own);
  ApproverSession session{support, approver, relays, clock};

  Pairing() {
    saveOwnMailbox(*keychain, kRelayURL, MailboxRole::approving, own);
    savePairedMacs(support, {PairedMac{computer.identity(), addressOf(relay.createMailbox(false)),
                                       kRelayURL, clock.now(), std::nullopt, token}});
  }

  // Sends one request and moves the clock past the last one's memory, so the inbox stays small.
  Bytes sendRequest() {
    clock.advance(ApproverInbox::kClosedKeptSeconds + 120);
    ApprovalRequestMessage request{crypto::randomBytes(16),
                                   computer.identity().identityHash(),
                                   millisecondsSince1970(clock.now()),
                                   millisecondsSince1970(clock.now() + 60),
                                   "SHA256:2f1hMEBS0MOIdrpNYlHvYBgSAIs1q8bGrrdk1DAc3Fo",
                                   "work",
                                   ApprovalPurpose::signature("git"),
                                   "git",
                                   false,
                                   {"zsh", "git"},
                                   "/home/dev/project",
                                   "",
                                   crypto::randomBytes(32),
                                   {qap::ApprovalScope::once, qap::ApprovalScope::fiveMinutes}};
    relay.send(MailboxAddress{own.id, token},
               sealApprovalRequest(request, computer, approver.identity()), false);
    return request.requestID;
  }
};

void BM_ReceiveOneRequest(benchmark::State& state) {
  Pairing pairing;
  for (auto _ : state) {
    state.PauseTiming();
    pairing.sendRequest();
    state.ResumeTiming();
    benchmark::DoNotOptimize(pairing.session.receive(false));
  }
}
BENCHMARK(BM_ReceiveOneRequest)->Unit(benchmark::kMillisecond);

void BM_AnswerOneRequest(benchmark::State& state) {
  Pairing pairing;
  for (auto _ : state) {
    state.PauseTiming();
    const Bytes id = pairing.sendRequest();
    pairing.session.receive(false);
    state.ResumeTiming();
    benchmark::DoNotOptimize(pairing.session.answer(shortRequestID(id), ApprovalDecision::approve,
                                                    qap::ApprovalScope::once, true));
  }
}
BENCHMARK(BM_AnswerOneRequest)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quorvane
