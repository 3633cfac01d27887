// Sealed files: generations, versions, every way a file can be wrong, the MAC's exact input
// (checked with the openssl program), and files rewritten by a process that is killed.
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <functional>
#include <iostream>
#include <map>
#include <memory>
#include <random>
#include <sstream>
#include <thread>

#include "Base/Base64.h"
#include "Base/Hex.h"
#include "Base/Random.h"
#include "Crypto/HMAC.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/KeyStoreError.h"
#include "KeyStore/KeychainSealingKey.h"
#include "KeyStore/SealedFile.h"
#include "Platform/FileKeychain.h"
#include "support/ChildProcess.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

const JSON kValue = {{"name", "work laptop"}, {"count", 3}};

struct ProviderKind {
  const char* name;
  std::function<std::shared_ptr<SealingKeyProvider>(const fs::path& folder)> make;
};

// Every case runs with the fixed key and with the keychain-backed key on a file keychain.
class SealedFileTest : public ::testing::TestWithParam<ProviderKind> {
 protected:
  SealedFile::Envelope envelope() const {
    return SealedFile::Envelope::decode(bytesOf(testing::readFile(path_)));
  }
  // Writes `envelope` with a correct MAC for its (possibly changed) fields.
  void writeResealed(SealedFile::Envelope changed) {
    changed.mac = crypto::hmacSHA256(
        provider_->key().view(),
        SealedFile::macInput(changed.purpose, changed.generation, changed.payload));
    testing::writeFile(path_, changed.encode());
  }
  SealedFileError readError(std::string_view purpose = "keys") { return readError(path_, purpose); }
  SealedFileError readError(const fs::path& path, std::string_view purpose) {
    try {
      SealedFile::read(path, purpose, *provider_);
    } catch (const SealedFileError& error) {
      return error;
    }
    ADD_FAILURE() << "the file read without error";
    return SealedFileError::missing();
  }

  testing::TemporaryDirectory directory_;
  std::shared_ptr<SealingKeyProvider> provider_ = GetParam().make(directory_.path() / "keychain");
  fs::path path_ = directory_.path() / "support" / "keys.json";
  void SetUp() override { fs::create_directories(path_.parent_path()); }
};

TEST_P(SealedFileTest, GenerationsCountUpAndAnOlderCopyIsTampered) {
  SealedFile::write(kValue, path_, "keys", *provider_);
  EXPECT_EQ(envelope().generation, 1u);
  const std::string first = testing::readFile(path_);
  SealedFile::write(JSON::array(), path_, "keys", *provider_);
  EXPECT_EQ(envelope().generation, 2u);
  EXPECT_EQ(SealedFile::read(path_, "keys", *provider_), JSON::array());

  testing::writeFile(path_, first);
  EXPECT_EQ(readError(), SealedFileError::tampered());
  EXPECT_EQ(testing::readFile(path_), first) << "a failed read changes nothing";
}

TEST_P(SealedFileTest, AVersion1FileReadsOnlyUntilTheFirstGenerationIsRecorded) {
  SealedFile::Envelope old{1, "keys", std::nullopt, bytesOf(kValue.dump()), {}};
  writeResealed(old);
  EXPECT_EQ(SealedFile::read(path_, "keys", *provider_), kValue);
  EXPECT_EQ(provider_->generation("keys"), 0u);

  const std::string version1 = testing::readFile(path_);
  SealedFile::write(kValue, path_, "keys", *provider_);
  testing::writeFile(path_, version1);
  EXPECT_EQ(readError(), SealedFileError::tampered());
}

TEST_P(SealedFileTest, AMissingFileIsMissingOnlyBeforeTheFirstWrite) {
  EXPECT_EQ(readError(), SealedFileError::missing());
  SealedFile::write(kValue, path_, "keys", *provider_);
  fs::remove(path_);
  EXPECT_EQ(readError(), SealedFileError::tampered());
}

TEST_P(SealedFileTest, AGenerationAheadOfTheRecordIsAcceptedAndRecorded) {
  SealedFile::write(kValue, path_, "keys", *provider_);
  SealedFile::Envelope ahead = envelope();
  ahead.generation = 9;
  writeResealed(ahead);
  EXPECT_EQ(SealedFile::read(path_, "keys", *provider_), kValue);
  EXPECT_EQ(provider_->generation("keys"), 9u);
  SealedFile::write(kValue, path_, "keys", *provider_);
  EXPECT_EQ(envelope().generation, 10u);
}

TEST_P(SealedFileTest, FilesOfTwoPurposesCannotBeSwapped) {
  const fs::path rules = directory_.path() / "support" / "rules.json";
  SealedFile::write(kValue, path_, "keys", *provider_);
  SealedFile::write(JSON::array(), rules, "rules", *provider_);
  const std::string keysText = testing::readFile(path_);
  fs::copy_file(rules, path_, fs::copy_options::overwrite_existing);
  EXPECT_EQ(readError("keys"), SealedFileError::tampered());
  testing::writeFile(rules, keysText);
  EXPECT_EQ(readError(rules, "rules"), SealedFileError::tampered());
}

// Each change to a good file, and the error it must give. `reseal` recomputes the MAC after the
// change, so that only the check being tested can catch it.
struct Damage {
  const char* name;
  std::function<void(JSON&)> change;
  bool reseal;
  SealedFileError::Kind expected;
};

const std::vector<Damage> kDamages = {
    {"payload byte flipped",
     [](JSON& e) {
       Bytes payload = *base64Decode(e["payload"].get<std::string>());
       payload[3] ^= 0x01;
       e["payload"] = base64Encode(payload);
     },
     false, SealedFileError::Kind::tampered},
    {"purpose changed", [](JSON& e) { e["purpose"] = "rules"; }, false,
     SealedFileError::Kind::tampered},
    {"generation changed", [](JSON& e) { e["generation"] = 2; }, false,
     SealedFileError::Kind::tampered},
    {"mac cut short",
     [](JSON& e) {
       Bytes mac = *base64Decode(e["mac"].get<std::string>());
       mac.pop_back();
       e["mac"] = base64Encode(mac);
     },
     false, SealedFileError::Kind::tampered},
    {"generation below the record", [](JSON& e) { e["generation"] = 0; }, true,
     SealedFileError::Kind::tampered},
    {"version 3", [](JSON& e) { e["version"] = 3; }, false, SealedFileError::Kind::malformed},
    {"version 1 with a generation", [](JSON& e) { e["version"] = 1; }, false,
     SealedFileError::Kind::malformed},
    {"version 2 without a generation", [](JSON& e) { e.erase("generation"); }, false,
     SealedFileError::Kind::malformed},
    {"negative generation", [](JSON& e) { e["generation"] = -1; }, false,
     SealedFileError::Kind::malformed},
    {"version as text", [](JSON& e) { e["version"] = "2"; }, false,
     SealedFileError::Kind::malformed},
    {"payload not base64", [](JSON& e) { e["payload"] = "not base64!"; }, false,
     SealedFileError::Kind::malformed},
    {"no mac", [](JSON& e) { e.erase("mac"); }, false, SealedFileError::Kind::malformed},
    {"payload not JSON", [](JSON& e) { e["payload"] = base64Encode(bytesOf("{\"a\":")); }, true,
     SealedFileError::Kind::malformed},
    {"not an object", [](JSON& e) { e = JSON::array({e}); }, false,
     SealedFileError::Kind::malformed},
};

TEST_P(SealedFileTest, EveryDamageGivesItsError) {
  for (const Damage& damage : kDamages) {
    SealedFile::write(kValue, path_, "keys", *provider_);
    JSON document = JSON::parse(testing::readFile(path_));
    damage.change(document);
    testing::writeFile(path_, document.dump());
    if (damage.reseal) writeResealed(SealedFile::Envelope::decode(bytesOf(document.dump())));
    const std::string damaged = testing::readFile(path_);
    EXPECT_EQ(readError().kind(), damage.expected) << damage.name;
    EXPECT_EQ(testing::readFile(path_), damaged) << damage.name;
  }
  for (const char* text : {"", "not json", "{}", "null", "[1,2]"}) {
    testing::writeFile(path_, text);
    EXPECT_EQ(readError(), SealedFileError::malformed()) << text;
  }
}

TEST_P(SealedFileTest, APayloadOfTheWrongTypeIsMalformed) {
  SealedFile::write(kValue, path_, "keys", *provider_);
  auto decodeList = [](const JSONReader& reader) { return reader.strings(); };
  EXPECT_THROW(SealedFile::read(path_, "keys", *provider_, decodeList), SealedFileError);
  SealedFile::write(JSON::array({"a", "b"}), path_, "keys", *provider_);
  EXPECT_EQ(SealedFile::read(path_, "keys", *provider_, decodeList),
            (std::vector<std::string>{"a", "b"}));
}

INSTANTIATE_TEST_SUITE_P(Providers, SealedFileTest,
                         ::testing::Values(ProviderKind{"Fixed",
                                                        [](const fs::path&) {
                                                          return std::make_shared<FixedSealingKey>(
                                                              SecureBytes(crypto::randomBytes(32)));
                                                        }},
                                           ProviderKind{
                                               "Keychain",
                                               [](const fs::path& folder) {
                                                 return std::make_shared<KeychainSealingKey>(
                                                     std::make_shared<FileKeychain>(folder));
                                               }}),
                         [](const auto& test) { return std::string(test.param.name); });

// The envelope's text and the MAC input, against the openssl program's HMAC.
const Bytes kFormatKey =
    testing::hex("000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1e1f");

// Writes an empty array sealed as the 42nd generation of "keys" and returns the file's text.
std::string writeFormatSample(const testing::TemporaryDirectory& directory) {
  FixedSealingKey provider{SecureBytes(kFormatKey)};
  provider.setGeneration(41, "keys");
  const fs::path path = directory.path() / "keys.json";
  SealedFile::write(JSON::array(), path, "keys", provider);
  return testing::readFile(path);
}

TEST(SealedFileFormat, IsSortedPrettyJSON) {
  testing::TemporaryDirectory directory;
  const std::string text = writeFormatSample(directory);
  EXPECT_EQ(text.substr(0, 20), "{\n  \"generation\": 42") << text;
  size_t last = 0;
  for (const char* key_ :
       {"\"generation\"", "\"mac\"", "\"payload\"", "\"purpose\"", "\"version\""}) {
    const size_t at = text.find(key_);
    ASSERT_NE(at, std::string::npos) << key_;
    EXPECT_GT(at, last) << key_ << " out of order";
    last = at;
  }
}

struct MACInputCase {
  std::optional<uint64_t> generation;
  std::string input;  // the MAC input as it should be, byte for byte
};

void PrintTo(const MACInputCase& c, std::ostream* out) {
  *out << (c.generation ? "generation " + std::to_string(*c.generation) : "no generation");
}

class SealedFileMAC : public ::testing::TestWithParam<MACInputCase> {};

TEST_P(SealedFileMAC, IsTheHMACOpenSSLComputesOverTheInput) {
  const MACInputCase& c = GetParam();
  testing::TemporaryDirectory directory;
  EXPECT_EQ(textOf(SealedFile::macInput("keys", c.generation, bytesOf("[]"))), c.input);
  const fs::path input = directory.path() / "mac-input";
  testing::writeFile(input, c.input);
  auto result = testing::runCommand({"openssl", "dgst", "-sha256", "-mac", "HMAC", "-macopt",
                                     "hexkey:" + hexEncode(kFormatKey), "-r", input.string()});
  ASSERT_EQ(result.exitCode, 0);
  const std::string expected = result.output.substr(0, 64);
  EXPECT_EQ(hexEncode(crypto::hmacSHA256(
                kFormatKey, SealedFile::macInput("keys", c.generation, bytesOf("[]")))),
            expected);
  if (c.generation) {
    const std::string text = writeFormatSample(directory);
    EXPECT_EQ(hexEncode(SealedFile::Envelope::decode(bytesOf(text)).mac), expected);
  }
}

INSTANTIATE_TEST_SUITE_P(
    Versions, SealedFileMAC,
    ::testing::Values(MACInputCase{42, std::string("quorvane-sealed-v2keys\0"
                                                   "42\0[]",
                                                   28)},
                      MACInputCase{std::nullopt, std::string("quorvane-sealed-v1keys\0[]", 25)}));

TEST(KeychainSealingKey, ReportsKeychainFailuresAsKeyStoreErrors) {
  testing::TemporaryDirectory directory;
  auto keychain = std::make_shared<FileKeychain>(directory.path() / "keychain");
  KeychainSealingKey provider(keychain);
  ASSERT_EQ(keychain->add(KeychainSealingKey::kService, "file-sealing-key", Bytes(31)),
            kKeychainSuccess);
  EXPECT_EQ(
      [&] {
        try {
          SealedFile::write(kValue, directory.path() / "keys.json", "keys", provider);
        } catch (const KeyStoreError& error) {
          return error;
        }
        return KeyStoreError::duplicateKey();
      }(),
      KeyStoreError::keychain(kKeychainDecodeError));

  for (const char* text : {"", "-1", "+1", "1 ", "18446744073709551616", "x"}) {
    keychain->remove(KeychainSealingKey::kGenerationService, "keys");
    keychain->add(KeychainSealingKey::kGenerationService, "keys", bytesOf(text));
    EXPECT_THROW(provider.generation("keys"), KeyStoreError) << text;
  }
  provider.setGeneration(18446744073709551615u, "keys");
  EXPECT_EQ(provider.generation("keys"), 18446744073709551615u);

  // A keychain whose folder cannot be made: a file stands where it should be.
  testing::writeFile(directory.path() / "blocked", "");
  KeychainSealingKey blocked(std::make_shared<FileKeychain>(directory.path() / "blocked"));
  EXPECT_THROW(blocked.key(), KeyStoreError);
}

// Two processes asking for the sealing key while none exists must end up with the same key.
TEST(KeychainSealingKey, TwoProcessesMakingTheKeyAtOnceAgreeOnOne) {
  constexpr int kRounds = 60;
  testing::TemporaryDirectory directory;
  int agreed = 0;
  for (int round = 0; round < kRounds; ++round) {
    const fs::path folder = directory.path() / std::to_string(round);
    testing::StartGate gate;
    int pipes[2][2];
    pid_t children[2];
    for (int c = 0; c < 2; ++c) {
      ASSERT_EQ(pipe(pipes[c]), 0);
      children[c] = testing::forkChild([&, c] {
        KeychainSealingKey provider(std::make_shared<FileKeychain>(folder));
        gate.wait();
        const SecureBytes key = provider.key();
        return write(pipes[c][1], key.data(), key.size()) == 32 ? 0 : 1;
      });
      close(pipes[c][1]);
    }
    gate.open();
    SecureBytes keys[2] = {SecureBytes(32), SecureBytes(32)};
    for (int c = 0; c < 2; ++c) {
      ASSERT_EQ(testing::waitChild(children[c]), 0);
      EXPECT_EQ(read(pipes[c][0], keys[c].data(), 32), 32);
      close(pipes[c][0]);
    }
    ASSERT_EQ(keys[0], keys[1]) << "round " << round;
    EXPECT_EQ(KeychainSealingKey(std::make_shared<FileKeychain>(folder)).key(), keys[0]);
    ++agreed;
  }
  std::cout << "sealing key race: " << agreed << " of " << kRounds << " rounds agreed\n";
}

// A writer killed at a random moment while it rewrites a sealed file over and over must leave a
// file that reads: the old one, the new one, or the new one a generation ahead of the record.
TEST(SealedFileCrashSafety, AWriterKilledAtRandomNeverLeavesABrokenFile) {
  constexpr int kKills = 200;
  testing::TemporaryDirectory directory;
  const fs::path keychainFolder = directory.path() / "keychain";
  const fs::path path = directory.path() / "support" / "keys.json";
  KeychainSealingKey provider(std::make_shared<FileKeychain>(keychainFolder));
  SealedFile::write(JSON::array(), path, "keys", provider);

  std::mt19937 random(20240607);
  std::uniform_int_distribution<int> delayMicroseconds(0, 2000);
  std::map<std::string, int> outcomes;
  int aheadOfRecord = 0;
  for (int kill = 0; kill < kKills; ++kill) {
    // The child says when its first write is done, so that every kill lands among writes.
    int started[2];
    ASSERT_EQ(pipe(started), 0);
    const pid_t child = testing::forkChild([&] {
      close(started[0]);
      KeychainSealingKey own(std::make_shared<FileKeychain>(keychainFolder));
      for (int i = 0; i < 100000; ++i) {
        SealedFile::write(JSON::array({i, "x"}), path, "keys", own);
        if (i == 0 && write(started[1], "s", 1) != 1) return 1;
      }
      return 0;
    });
    close(started[1]);
    pollfd ready{started[0], POLLIN, 0};
    ASSERT_EQ(poll(&ready, 1, 10000), 1) << "the writer did not start";
    close(started[0]);
    std::this_thread::sleep_for(std::chrono::microseconds(delayMicroseconds(random)));
    ::kill(child, SIGKILL);
    EXPECT_EQ(testing::waitChild(child), -SIGKILL);

    KeychainSealingKey reader(std::make_shared<FileKeychain>(keychainFolder));
    const uint64_t recorded = reader.generation("keys");
    try {
      const auto fileGeneration =
          SealedFile::Envelope::decode(bytesOf(testing::readFile(path))).generation;
      aheadOfRecord += fileGeneration && *fileGeneration > recorded;
      SealedFile::read(path, "keys", reader);
      ++outcomes["read"];
    } catch (const SealedFileError& error) {
      ++outcomes[error.what()];
    }
  }
  std::ostringstream summary;
  for (const auto& [outcome, count] : outcomes) summary << outcome << ": " << count << "; ";
  std::cout << "crash safety: " << kKills << " kills; " << summary.str() << aheadOfRecord
            << " killed between the rename and the generation update; "
            << provider.generation("keys") << " writes in all\n";
  EXPECT_EQ(outcomes["read"], kKills) << summary.str();
}

}  // namespace
}  // namespace quorvane
