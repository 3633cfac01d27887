// The costs of the approval protocol's cryptography: ML-KEM-768 and X-Wing key generation,
// encapsulation and decapsulation, and sealing and opening a 1 KiB approval request (ECDSA
// signature, X-Wing, HPKE key schedule, AES-256-GCM). OpenSSL's X25519 and AES-256-GCM, and the
// P-256 signature inside every seal, run beside them for scale. Every benchmark reports the median
// of nine repetitions in microseconds.
#include <benchmark/benchmark.h>

#include "ApprovalProto/ApprovalRequestMessage.h"
#include "ApprovalProto/DomainLabels.h"
#include "ApprovalProto/Sealing.h"
#include "Base/Random.h"
#include "Crypto/AESGCM.h"
#include "Crypto/MLKEM768.h"
#include "Crypto/SignatureVerification.h"
#include "Crypto/X25519.h"
#include "Crypto/XWing.h"

namespace quorvane {
namespace {

using namespace crypto;

// An approval request whose encoding is 1024 bytes.
Bytes approvalRequestOf1KiB() {
  ApprovalRequestMessage request;
  request.requestID = Bytes(16, 0x01);
  request.macID = Bytes(32, 0x02);
  request.createdAt = 1'700'000'000'000;
  request.expiresAt = request.createdAt + 60'000;
  request.keyFingerprint = "SHA256:47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU";
  request.keyName = "work laptop key";
  request.purpose = ApprovalPurpose::login("SHA256:uNiVztksCsDhcc0u9e8BujQXVUpKZIDTMczCvj3tD2s",
                                           "github.com", HostNameState::confirmed, "git", false);
  request.appName = "git";
  request.appVerified = true;
  request.chain = {"ssh", "git", "zsh", "tmux", "systemd"};
  request.workingDirectory = "/home/me/src/project";
  request.dataHash = Bytes(32, 0x03);
  request.scopes = {qap::ApprovalScope::once, qap::ApprovalScope::fiveMinutes};
  request.hint = std::string(1024 - request.encode().size(), 'h');
  return request.encode();
}

struct Parties {
  DeviceKeys mac = DeviceKeys::generate("Mac");
  DeviceKeys device = DeviceKeys::generate("Phone");
  Bytes macHash = mac.identity().identityHash();
  Bytes request = approvalRequestOf1KiB();
};

const Parties& parties() {
  static const Parties kParties;
  return kParties;
}

void BM_MLKEM768KeyGen(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(mlkem768GenerateKeyPair());
}

void BM_MLKEM768Encaps(benchmark::State& state) {
  const MLKEM768KeyPair pair = mlkem768GenerateKeyPair();
  for (auto _ : state) benchmark::DoNotOptimize(mlkem768Encapsulate(pair.encapsulationKey));
}

void BM_MLKEM768Decaps(benchmark::State& state) {
  const MLKEM768KeyPair pair = mlkem768GenerateKeyPair();
  const Bytes ciphertext = mlkem768Encapsulate(pair.encapsulationKey)->ciphertext;
  for (auto _ : state)
    benchmark::DoNotOptimize(mlkem768Decapsulate(pair.decapsulationKey.view(), ciphertext));
}

void BM_XWingKeyFromSeed(benchmark::State& state) {
  const Bytes seed = randomBytes(kXWingSeedSize);
  for (auto _ : state) benchmark::DoNotOptimize(XWingPrivateKey::fromSeed(seed));
}

void BM_XWingEncaps(benchmark::State& state) {
  const XWingPrivateKey key = XWingPrivateKey::generate();
  for (auto _ : state) benchmark::DoNotOptimize(key.publicKey().encapsulate());
}

void BM_XWingDecaps(benchmark::State& state) {
  const XWingPrivateKey key = XWingPrivateKey::generate();
  const Bytes ciphertext = key.publicKey().encapsulate()->ciphertext;
  for (auto _ : state) benchmark::DoNotOptimize(key.decapsulate(ciphertext));
}

void BM_SealApprovalRequest1KiB(benchmark::State& state) {
  const Parties& p = parties();
  const DeviceIdentity device = p.device.identity();
  for (auto _ : state)
    benchmark::DoNotOptimize(
        sealMessage(p.request, kQAPRequestLabel, *p.mac.signer, p.macHash, device));
}

void BM_OpenApprovalRequest1KiB(benchmark::State& state) {
  const Parties& p = parties();
  const Bytes macKey = p.mac.signer->publicKey();
  const Bytes sealed =
      sealMessage(p.request, kQAPRequestLabel, *p.mac.signer, p.macHash, p.device.identity());
  for (auto _ : state)
    benchmark::DoNotOptimize(openMessage(sealed, kQAPRequestLabel, macKey, p.device));
}

void BM_SealAndOpenApprovalRequest1KiB(benchmark::State& state) {
  const Parties& p = parties();
  const DeviceIdentity device = p.device.identity();
  const Bytes macKey = p.mac.signer->publicKey();
  for (auto _ : state) {
    const Bytes sealed = sealMessage(p.request, kQAPRequestLabel, *p.mac.signer, p.macHash, device);
    benchmark::DoNotOptimize(openMessage(sealed, kQAPRequestLabel, macKey, p.device));
  }
}

void BM_OpenSSLX25519KeyAgreement(benchmark::State& state) {
  const X25519PrivateKey own = X25519PrivateKey::generate();
  const Bytes peer = X25519PrivateKey::generate().publicKey();
  for (auto _ : state) benchmark::DoNotOptimize(own.sharedSecret(peer));
}

void BM_OpenSSLX25519KeyGen(benchmark::State& state) {
  for (auto _ : state) benchmark::DoNotOptimize(X25519PrivateKey::generate());
}

void BM_OpenSSLAES256GCMSeal1KiB(benchmark::State& state) {
  const Bytes key = randomBytes(32), nonce = randomBytes(12), plaintext = randomBytes(1024);
  for (auto _ : state) benchmark::DoNotOptimize(aesGCMSeal(key, nonce, plaintext, {}));
}

void BM_OpenSSLP256Sign(benchmark::State& state) {
  const Parties& p = parties();
  for (auto _ : state) benchmark::DoNotOptimize(p.mac.signer->sign(p.request));
}

void BM_OpenSSLP256Verify(benchmark::State& state) {
  const Parties& p = parties();
  const Bytes key = p.mac.signer->publicKey();
  const Bytes signature = p.mac.signer->sign(p.request);
  for (auto _ : state)
    benchmark::DoNotOptimize(verifyECDSA(EllipticCurve::p256, key, p.request,
                                         ByteView(signature).first(32),
                                         ByteView(signature).subspan(32)));
}

}  // namespace

#define QUORVANE_MEDIAN_BENCHMARK(name) \
  BENCHMARK(name)->Repetitions(9)->ReportAggregatesOnly(true)->Unit(benchmark::kMicrosecond)

QUORVANE_MEDIAN_BENCHMARK(BM_MLKEM768KeyGen);
QUORVANE_MEDIAN_BENCHMARK(BM_MLKEM768Encaps);
QUORVANE_MEDIAN_BENCHMARK(BM_MLKEM768Decaps);
QUORVANE_MEDIAN_BENCHMARK(BM_XWingKeyFromSeed);
QUORVANE_MEDIAN_BENCHMARK(BM_XWingEncaps);
QUORVANE_MEDIAN_BENCHMARK(BM_XWingDecaps);
QUORVANE_MEDIAN_BENCHMARK(BM_SealApprovalRequest1KiB);
QUORVANE_MEDIAN_BENCHMARK(BM_OpenApprovalRequest1KiB);
QUORVANE_MEDIAN_BENCHMARK(BM_SealAndOpenApprovalRequest1KiB);
QUORVANE_MEDIAN_BENCHMARK(BM_OpenSSLX25519KeyAgreement);
QUORVANE_MEDIAN_BENCHMARK(BM_OpenSSLX25519KeyGen);
QUORVANE_MEDIAN_BENCHMARK(BM_OpenSSLAES256GCMSeal1KiB);
QUORVANE_MEDIAN_BENCHMARK(BM_OpenSSLP256Sign);
QUORVANE_MEDIAN_BENCHMARK(BM_OpenSSLP256Verify);

}  // namespace quorvane
