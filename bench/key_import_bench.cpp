// Importing an encrypted OpenSSH key against OpenSSH itself: `ssh-keygen -y -P PASS -f FILE` reads
// and decrypts the same file. ssh-keygen's figures include starting a process, so two more
// benchmarks measure that fixed cost: running `true`, and `ssh-keygen -y` on an unencrypted key.
// The key files (Ed25519, aes256-ctr, bcrypt with 16 and 1024 rounds) are written by ssh-keygen
// when the program starts. All figures are wall-clock time.
#include <benchmark/benchmark.h>

#include <map>

#include "KeyImport/KeyImporter.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

constexpr const char* kPassphrase = "bench passphrase";

struct KeyFiles {
  testing::TemporaryDirectory directory;
  std::map<int, std::filesystem::path> encrypted;  // by bcrypt rounds
  std::filesystem::path plain;

  KeyFiles() {
    plain = directory.path() / "plain";
    make(plain, "", 16);
    for (int rounds : {16, 1024}) {
      encrypted[rounds] = directory.path() / ("rounds" + std::to_string(rounds));
      make(encrypted[rounds], kPassphrase, rounds);
    }
  }

  static void make(const std::filesystem::path& path, const std::string& passphrase, int rounds) {
    auto result =
        testing::runCommand({"ssh-keygen", "-q", "-t", "ed25519", "-Z", "aes256-ctr", "-a",
                             std::to_string(rounds), "-N", passphrase, "-f", path.string()});
    if (result.exitCode != 0)
      throw std::runtime_error("ssh-keygen could not write " + path.string());
  }
};

const KeyFiles& keyFiles() {
  static const KeyFiles files;
  return files;
}

void runOrFail(benchmark::State& state, const std::vector<std::string>& arguments) {
  if (testing::runCommand(arguments).exitCode != 0) state.SkipWithError("command failed");
}

void BM_ImportOpenSSH(benchmark::State& state) {
  const std::string text =
      testing::readFile(keyFiles().encrypted.at(static_cast<int>(state.range(0))));
  const SecureBytes passphrase(bytesOf(kPassphrase));
  for (auto _ : state) benchmark::DoNotOptimize(KeyImporter::parse(text, passphrase));
}

void BM_SSHKeygenY(benchmark::State& state) {
  const auto& file = keyFiles().encrypted.at(static_cast<int>(state.range(0)));
  for (auto _ : state)
    runOrFail(state, {"ssh-keygen", "-y", "-P", kPassphrase, "-f", file.string()});
}

void BM_SSHKeygenYUnencrypted(benchmark::State& state) {
  for (auto _ : state) runOrFail(state, {"ssh-keygen", "-y", "-f", keyFiles().plain.string()});
}

void BM_ProcessTrue(benchmark::State& state) {
  for (auto _ : state) runOrFail(state, {"true"});
}

// The two sides of each rounds value run one after the other, so that they see the same load.
BENCHMARK(BM_ImportOpenSSH)->Arg(16)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);
BENCHMARK(BM_SSHKeygenY)->Arg(16)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2);
BENCHMARK(BM_ImportOpenSSH)->Arg(1024)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_SSHKeygenY)->Arg(1024)->Unit(benchmark::kMillisecond)->UseRealTime()->Iterations(3);
BENCHMARK(BM_SSHKeygenYUnencrypted)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1);
BENCHMARK(BM_ProcessTrue)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(1);

}  // namespace
}  // namespace quorvane
