#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <future>
#include <thread>

#include "ActivityModel/InMemoryActivityLog.h"
#include "AgentEngine/Agent.h"
#include "AgentEngine/AgentConnection.h"
#include "AgentEngine/LocalApprover.h"
#include "AgentState/InMemoryLockStore.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/SoftwareHardwareKeys.h"
#include "Platform/SocketIO.h"
#include "SSHWire/AgentMessageType.h"
#include "SSHWire/Framing.h"
#include "SSHWire/WireWriter.h"
#include "agent/FrameIO.h"
#include "agent/FrameServer.h"
#include "support/SSHSig.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using namespace std::chrono_literals;

// Hardware as slow as a real TPM at its worst: every signature takes 500 ms. Counts the
// signatures that started and that finished.
class SlowHardwareKeys final : public HardwareKeys {
 public:
  bool available() override { return true; }
  CreatedKey create(ProtectionClass protection, const SecureBytes* pin) override {
    return inner_.create(protection, pin);
  }
  Bytes sign(ByteView handle, ByteView data, const SecureBytes* pin) override {
    ++started;
    std::this_thread::sleep_for(500ms);
    Bytes signature = inner_.sign(handle, data, pin);
    ++finished;
    return signature;
  }

  std::atomic<int> started = 0;
  std::atomic<int> finished = 0;

 private:
  testing::SoftwareHardwareKeys inner_;
};

class AgentSession final : public FrameServer::Session {
 public:
  AgentSession(Agent& agent, AnnouncementBoard& board, Clock& clock, int32_t pid)
      : connection_(agent, board, clock, origin(), std::nullopt, ProcessInstance{pid, 1}) {}
  Bytes answer(ByteView body, ClientWatch& watch) override {
    return connection_.handle(body, watch).framed();
  }

 private:
  static RequestOrigin origin() {
    RequestOrigin origin;
    origin.appName = "ssh-keygen";
    return origin;
  }
  AgentConnection connection_;
};

// The SSHSIG data that ssh-keygen -Y sign -n file hands the agent.
Bytes sshsigData() { return testing::sshSigSignedData("file", "sha512", Bytes(64, 7)); }

// A signature request for `key`, framed.
Bytes signRequest(const KeyRecord& key) {
  WireWriter writer;
  writer.writeByte(static_cast<uint8_t>(AgentMessageType::signRequest));
  writer.writeString(key.publicKeyBlob);
  writer.writeString(sshsigData());
  writer.writeUInt32(0);
  return Framing::frame(std::move(writer).take());
}

// The agent behind a real socket, on the server's default two runners, with a rule that allows
// every file signature, so that nothing waits for a person: only for the hardware.
struct SlowHardware : ::testing::Test {
  testing::TemporaryDirectory home;
  std::shared_ptr<SystemClock> clock = std::make_shared<SystemClock>();
  std::shared_ptr<SlowHardwareKeys> hardware = std::make_shared<SlowHardwareKeys>();
  std::shared_ptr<KeyStore> keys =
      std::make_shared<KeyStore>(std::make_shared<InMemorySecretStore>(), "", nullptr, hardware);
  std::shared_ptr<LocalApprover> approver = std::make_shared<LocalApprover>(*clock);
  Agent agent{AgentServices{keys, approver, std::make_shared<InMemoryActivityLog>(), nullptr,
                            nullptr, std::make_shared<InMemoryLockStore>(), clock},
              PolicyEngine{}};
  AnnouncementBoard board;
  std::atomic<int32_t> nextPID = 100;
  std::filesystem::path socketPath = home.path() / "agent.sock";
  UnixListener listener = UnixListener::open(socketPath);
  FrameServer server{
      listener,
      [this](int) { return std::make_unique<AgentSession>(agent, board, *clock, nextPID++); },
      {.runners = 2}};
  std::stop_source stop;
  std::jthread runner{[this] { server.run(stop.get_token()); }};

  SlowHardware() {
    agent.replaceRules({Rule::make("files", Decision::allow, PurposeMatch::signature("file"))});
  }
  ~SlowHardware() override {
    stop.request_stop();
    runner.join();
  }

  // Sends one signature request on a new connection; true when the answer is a signature.
  bool signs(const KeyRecord& key) {
    FileDescriptor client = connectUnix(socketPath);
    if (!writeAll(client.get(), signRequest(key))) return false;
    std::optional<Bytes> answer = readFrame(client.get());
    return answer && !answer->empty() &&
           (*answer)[0] == static_cast<uint8_t>(AgentMessageType::signResponse);
  }
};

// Two slow hardware signatures hold both runners of the loop; a software key's signature on a
// third connection is still answered before either of them ends.
TEST_F(SlowHardware, OtherClientsAndKeysAreNotHeldUp) {
  const KeyRecord slow = keys->create("tpm", ProtectionClass::remoteApproval, clock->now());
  const KeyRecord quick = keys->generate(KeyAlgorithm::ed25519, "software", clock->now());
  auto first = std::async(std::launch::async, [&] { return signs(slow); });
  auto second = std::async(std::launch::async, [&] { return signs(slow); });
  ASSERT_TRUE(testing::eventually([&] { return hardware->started == 2; }));

  EXPECT_TRUE(signs(quick));
  EXPECT_EQ(hardware->finished, 0) << "the software signature waited for the hardware";

  EXPECT_TRUE(first.get());
  EXPECT_TRUE(second.get());
  EXPECT_EQ(hardware->finished, 2);
}

}  // namespace
}  // namespace quorvane
