// What a TPM key costs: the latency of one signature through the agent (socket, sign path, allow
// rule, key store) for a P-256 key in a software TPM next to a software P-256 key, in the same
// run, with the median and the 99th percentile of single requests; and the cost of connecting to
// the TPM and creating its storage primary key, which the agent pays once per process.
//
// Starts its own swtpm (swtpm must be installed). Real TPMs are much slower than swtpm: published
// figures are 23-190 ms per ECDSA P-256 signature.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <thread>
#include <vector>

#include "ActivityModel/InMemoryActivityLog.h"
#include "AgentEngine/Agent.h"
#include "AgentEngine/AgentConnection.h"
#include "AgentEngine/LocalApprover.h"
#include "AgentState/InMemoryLockStore.h"
#include "KeyStore/InMemorySecretStore.h"
#include "Platform/SocketIO.h"
#include "SSHWire/AgentMessageType.h"
#include "SSHWire/Framing.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"
#include "TPM/TPMHardwareKeys.h"
#include "agent/FrameServer.h"
#include "support/SoftwareTPM.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using Stopwatch = std::chrono::steady_clock;

// One software TPM for the whole run.
testing::SoftwareTPM& softwareTPM() {
  static testing::TemporaryDirectory folder;
  static testing::SoftwareTPM tpm(folder.path() / "tpm");
  return tpm;
}

class AgentSession final : public FrameServer::Session {
 public:
  AgentSession(Agent& agent, AnnouncementBoard& board, quorvane::Clock& clock)
      : connection_(agent, board, clock, RequestOrigin{}, std::nullopt, ProcessInstance{1, 1}) {}
  Bytes answer(ByteView body, ClientWatch& watch) override {
    return connection_.handle(body, watch).framed();
  }

 private:
  AgentConnection connection_;
};

// The agent with a TPM back end, one TPM key and one software P-256 key, an allow rule for file
// signatures, served on a socket in a temporary folder.
struct BenchAgent {
  testing::TemporaryDirectory home;
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<KeyStore> keys =
      std::make_shared<KeyStore>(std::make_shared<InMemorySecretStore>(), "", nullptr,
                                 std::make_shared<TPMHardwareKeys>(softwareTPM().tcti()));
  Agent agent{AgentServices{keys, std::make_shared<LocalApprover>(*clock),
                            std::make_shared<InMemoryActivityLog>(), nullptr, nullptr,
                            std::make_shared<InMemoryLockStore>(), clock},
              PolicyEngine{}};
  AnnouncementBoard board;
  std::filesystem::path socketPath = home.path() / "agent.sock";
  UnixListener listener = UnixListener::open(socketPath);
  FrameServer server{
      listener, [this](int) { return std::make_unique<AgentSession>(agent, board, *clock); }, {}};
  std::stop_source stop;
  std::jthread runner{[this] { server.run(stop.get_token()); }};
  KeyRecord tpmKey = keys->create("tpm", ProtectionClass::remoteApproval, clock->now());
  KeyRecord softwareKey = keys->generate(KeyAlgorithm::ecdsaP256, "software", clock->now());

  BenchAgent() {
    agent.replaceRules({Rule::make("files", Decision::allow, PurposeMatch::signature("file"))});
  }
  ~BenchAgent() {
    stop.request_stop();
    runner.join();
  }
};

BenchAgent& benchAgent() {
  static BenchAgent agent;
  return agent;
}

Bytes signRequest(const KeyRecord& key) {
  WireWriter data;
  data.writeRaw(bytesOf("SSHSIG"));
  data.writeString(bytesOf("file"));
  data.writeString(Bytes{});
  data.writeString(bytesOf("sha512"));
  data.writeString(Bytes(64, 7));
  WireWriter writer;
  writer.writeByte(static_cast<uint8_t>(AgentMessageType::signRequest));
  writer.writeString(key.publicKeyBlob);
  writer.writeString(std::move(data).take());
  writer.writeUInt32(0);
  return Framing::frame(std::move(writer).take());
}

// Reads one framed answer; false unless it is a signature.
bool readSignature(int fd) {
  uint8_t header[4];
  if (!readExactly(fd, header, sizeof header)) return false;
  Bytes body(WireReader(ByteView(header, 4)).readUInt32());
  return !body.empty() && readExactly(fd, body.data(), body.size()) &&
         body[0] == static_cast<uint8_t>(AgentMessageType::signResponse);
}

double percentile(std::vector<double> values, double fraction) {
  std::sort(values.begin(), values.end());
  const size_t index = std::min(values.size() - 1, static_cast<size_t>(fraction * values.size()));
  return values[index];
}

// One client connection signing again and again; the counters give the median and p99 of the
// single requests in milliseconds.
void BM_SignThroughAgent(benchmark::State& state) {
  BenchAgent& bench = benchAgent();
  const KeyRecord& key = state.range(0) == 0 ? bench.tpmKey : bench.softwareKey;
  const Bytes request = signRequest(key);
  FileDescriptor client = connectUnix(bench.socketPath);
  std::vector<double> milliseconds;
  for (auto _ : state) {
    const auto start = Stopwatch::now();
    if (!writeAll(client.get(), request) || !readSignature(client.get())) {
      state.SkipWithError("the agent did not sign");
      break;
    }
    milliseconds.push_back(
        std::chrono::duration<double, std::milli>(Stopwatch::now() - start).count());
  }
  if (milliseconds.empty()) return;
  state.counters["median_ms"] = percentile(milliseconds, 0.5);
  state.counters["p99_ms"] = percentile(milliseconds, 0.99);
  state.SetLabel(state.range(0) == 0 ? "TPM P-256 (swtpm)" : "software P-256");
}
BENCHMARK(BM_SignThroughAgent)->Arg(0)->Arg(1)->Iterations(300)->Unit(benchmark::kMillisecond);

// Connecting to the TPM and creating the storage primary key (what the agent does once).
void BM_ConnectAndCreatePrimary(benchmark::State& state) {
  const std::string tcti = softwareTPM().tcti();
  for (auto _ : state) {
    TPMHardwareKeys hardware(tcti);
    if (!hardware.available()) {
      state.SkipWithError("no TPM");
      break;
    }
  }
}
BENCHMARK(BM_ConnectAndCreatePrimary)->Iterations(30)->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace quorvane
