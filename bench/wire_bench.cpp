// Costs on the agent's request path: decoding a sign request, classifying its data, parsing and
// fingerprinting keys, verifying a host's session-bind signature, and encoding an identity list.
#include <benchmark/benchmark.h>

#include "SSHWire/AgentRequest.h"
#include "SSHWire/AgentResponse.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SignPurpose.h"
#include "SSHWire/SignatureVerification.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSigner.h"

namespace quorvane {
namespace {

Bytes userAuthData(const Bytes& keyBlob, const Bytes& hostKeyBlob) {
  WireWriter writer;
  writer.writeString(Bytes(32, 0x5a));
  writer.writeByte(50);
  writer.writeString(std::string_view("git"));
  writer.writeString(std::string_view("ssh-connection"));
  writer.writeString(std::string_view("publickey-hostbound-v00@openssh.com"));
  writer.writeByte(1);
  writer.writeString(std::string_view("ssh-ed25519"));
  writer.writeString(keyBlob);
  writer.writeString(hostKeyBlob);
  return std::move(writer).take();
}

const testing::TestSigner& signer(SSHKeyType type) {
  static std::map<SSHKeyType, std::unique_ptr<testing::TestSigner>> signers;
  auto& slot = signers[type];
  if (!slot) slot = std::make_unique<testing::TestSigner>(type);
  return *slot;
}

void BM_ParseSignRequest(benchmark::State& state) {
  const Bytes& key = signer(SSHKeyType::ed25519).publicKey().blob;
  WireWriter writer;
  writer.writeByte(13);
  writer.writeString(key);
  writer.writeString(userAuthData(key, signer(SSHKeyType::ecdsaP256).publicKey().blob));
  writer.writeUInt32(0);
  for (auto _ : state) benchmark::DoNotOptimize(AgentRequest::parse(writer.data()));
}
BENCHMARK(BM_ParseSignRequest);

void BM_ClassifyLogin(benchmark::State& state) {
  const Bytes& key = signer(SSHKeyType::ed25519).publicKey().blob;
  Bytes data = userAuthData(key, signer(SSHKeyType::ecdsaP256).publicKey().blob);
  for (auto _ : state) benchmark::DoNotOptimize(SignPurpose::classify(data, key));
}
BENCHMARK(BM_ClassifyLogin);

void BM_ParsePublicKey(benchmark::State& state) {
  const Bytes& blob = signer(static_cast<SSHKeyType>(state.range(0))).publicKey().blob;
  for (auto _ : state) benchmark::DoNotOptimize(SSHPublicKey::parse(blob));
}
BENCHMARK(BM_ParsePublicKey)
    ->Arg(static_cast<int>(SSHKeyType::ed25519))
    ->Arg(static_cast<int>(SSHKeyType::rsa));

void BM_Fingerprint(benchmark::State& state) {
  const Bytes& blob = signer(SSHKeyType::rsa).publicKey().blob;
  for (auto _ : state) benchmark::DoNotOptimize(fingerprint(blob));
}
BENCHMARK(BM_Fingerprint);

void BM_VerifySessionSignature(benchmark::State& state) {
  const testing::TestSigner& host = signer(static_cast<SSHKeyType>(state.range(0)));
  Bytes sessionID(32, 0x11);
  Bytes signature = host.sign(sessionID);
  for (auto _ : state) benchmark::DoNotOptimize(verify(signature, sessionID, host.publicKey()));
}
BENCHMARK(BM_VerifySessionSignature)
    ->Arg(static_cast<int>(SSHKeyType::ed25519))
    ->Arg(static_cast<int>(SSHKeyType::ecdsaP256))
    ->Arg(static_cast<int>(SSHKeyType::ecdsaP384))
    ->Arg(static_cast<int>(SSHKeyType::rsa));

void BM_EncodeIdentities(benchmark::State& state) {
  AgentResponse::Identities identities;
  for (int i = 0; i < state.range(0); ++i)
    identities.list.push_back(
        {signer(SSHKeyType::ecdsaP256).publicKey().blob, "key " + std::to_string(i)});
  AgentResponse response{identities};
  for (auto _ : state) benchmark::DoNotOptimize(response.framed());
}
BENCHMARK(BM_EncodeIdentities)->Arg(1)->Arg(10)->Arg(100);

}  // namespace
}  // namespace quorvane
