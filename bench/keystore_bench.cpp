// What the key store costs on the sign path and on every change: a signature per algorithm
// (secret read, key rebuilt, signed), a sealed file write and read with a fixed key and with the
// file keychain (whose writes fsync), and a keychain item read.
#include <benchmark/benchmark.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "Base/Random.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/KeyStore.h"
#include "KeyStore/KeychainSealingKey.h"
#include "KeyStore/SealedFile.h"
#include "Platform/FileKeychain.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

// A scratch folder removed at exit.
const fs::path& scratch() {
  static const fs::path folder = [] {
    std::string pattern = (fs::temp_directory_path() / "quorvane-bench-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr) std::abort();
    std::atexit([] {
      std::error_code ignored;
      fs::remove_all(scratch(), ignored);
    });
    return fs::path(pattern);
  }();
  return folder;
}

void BM_Sign(benchmark::State& state) {
  const auto algorithm = static_cast<KeyAlgorithm>(state.range(0));
  const int bits = static_cast<int>(state.range(1));
  KeyStore store(std::make_shared<InMemorySecretStore>(), "", nullptr);
  const KeyRecord record = store.add(ImportedKey::generate(algorithm, bits), "bench", Date{0});
  const Bytes data(200, 0x5A);  // about the size of an SSH user-authentication request
  for (auto _ : state) benchmark::DoNotOptimize(store.sign(record, data, SignFlags::rsaSHA2_256));
  state.SetLabel(std::string(rawValue(algorithm)) + (bits ? " " + std::to_string(bits) : ""));
}
BENCHMARK(BM_Sign)
    ->Args({static_cast<int>(KeyAlgorithm::ed25519), 0})
    ->Args({static_cast<int>(KeyAlgorithm::ecdsaP256), 0})
    ->Args({static_cast<int>(KeyAlgorithm::ecdsaP384), 0})
    ->Args({static_cast<int>(KeyAlgorithm::rsa), 3072})
    ->Args({static_cast<int>(KeyAlgorithm::rsa), 4096})
    ->Unit(benchmark::kMicrosecond);

// A records list of `count` Ed25519 keys, as keys.json would hold it.
JSON recordsJSON(int count) {
  std::vector<KeyRecord> records;
  for (int i = 0; i < count; ++i)
    records.push_back({UUID::random(), "key " + std::to_string(i), KeyAlgorithm::ed25519,
                       ProtectionClass::imported,
                       ImportedKey::generate(KeyAlgorithm::ed25519).publicKey().blob,
                       Date{1'780'000'000}});
  return toJSON(records);
}

void sealedWriteRead(benchmark::State& state, SealingKeyProvider& provider, const fs::path& path) {
  const JSON value = recordsJSON(static_cast<int>(state.range(0)));
  for (auto _ : state) {
    SealedFile::write(value, path, "keys", provider);
    benchmark::DoNotOptimize(SealedFile::read(path, "keys", provider));
  }
}

void BM_SealedFileWriteRead_FixedKey(benchmark::State& state) {
  FixedSealingKey provider{SecureBytes(crypto::randomBytes(32))};
  sealedWriteRead(state, provider, scratch() / "fixed" / "keys.json");
}
BENCHMARK(BM_SealedFileWriteRead_FixedKey)->Arg(10)->Unit(benchmark::kMicrosecond);

void BM_SealedFileWriteRead_FileKeychain(benchmark::State& state) {
  KeychainSealingKey provider(std::make_shared<FileKeychain>(scratch() / "keychain"));
  sealedWriteRead(state, provider, scratch() / "keychain-sealed" / "keys.json");
}
BENCHMARK(BM_SealedFileWriteRead_FileKeychain)->Arg(10)->Unit(benchmark::kMicrosecond);

void BM_SealedFileRead_FileKeychain(benchmark::State& state) {
  KeychainSealingKey provider(std::make_shared<FileKeychain>(scratch() / "keychain"));
  const fs::path path = scratch() / "read" / "keys.json";
  SealedFile::write(recordsJSON(static_cast<int>(state.range(0))), path, "keys", provider);
  for (auto _ : state) benchmark::DoNotOptimize(SealedFile::read(path, "keys", provider));
}
BENCHMARK(BM_SealedFileRead_FileKeychain)->Arg(10)->Unit(benchmark::kMicrosecond);

void BM_FileKeychainRead(benchmark::State& state) {
  FileKeychain keychain(scratch() / "items");
  keychain.add("com.tallowmere.quorvane.keys", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
               crypto::randomBytes(32));
  for (auto _ : state)
    benchmark::DoNotOptimize(
        keychain.read("com.tallowmere.quorvane.keys", "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"));
}
BENCHMARK(BM_FileKeychainRead)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace quorvane
