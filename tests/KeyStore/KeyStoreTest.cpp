// The key store: its records file, its secrets, signing, and changes that fail half way.
#include <gtest/gtest.h>

#include <cerrno>
#include <filesystem>
#include <functional>
#include <memory>
#include <system_error>

#include "Base/Base64.h"
#include "Base/Random.h"
#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/KeyStore.h"
#include "KeyStore/KeyStoreError.h"
#include "KeyStore/KeychainSealingKey.h"
#include "KeyStore/KeychainSecretStore.h"
#include "KeyStore/SealedFile.h"
#include "Platform/AtomicFile.h"
#include "Platform/FileKeychain.h"
#include "SSHWire/SignatureVerification.h"
#include "SignatureBlob.h"
#include "SoftwareHardwareKeys.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

const Date kNow{1'780'000'000.75};
const Bytes kData = bytesOf("data to sign");

// The error that `action` throws, or a failure of the test when it throws none.
KeyStoreError keyStoreError(const std::function<void()>& action) {
  try {
    action();
  } catch (const KeyStoreError& error) {
    return error;
  }
  ADD_FAILURE() << "no KeyStoreError";
  return KeyStoreError::unsupported("none thrown");
}

std::string signatureAlgorithmOf(ByteView blob) {
  return testing::parseSignatureBlob(blob).algorithm;
}

// A store on a real file keychain and a real records file in a temporary support folder.
class KeyStoreTest : public ::testing::Test {
 protected:
  std::unique_ptr<KeyStore> openStore(std::shared_ptr<HardwareKeys> hardware = nullptr) {
    return std::make_unique<KeyStore>(secrets_, recordsPath_, sealing_, std::move(hardware));
  }

  testing::TemporaryDirectory directory_;
  std::shared_ptr<FileKeychain> keychain_ =
      std::make_shared<FileKeychain>(directory_.path() / "keychain");
  std::shared_ptr<SecretStore> secrets_ = std::make_shared<KeychainSecretStore>(keychain_);
  std::shared_ptr<SealingKeyProvider> sealing_ = std::make_shared<KeychainSealingKey>(keychain_);
  fs::path recordsPath_ = directory_.path() / "support" / "keys.json";
  std::unique_ptr<KeyStore> store_ = openStore();
};

TEST_F(KeyStoreTest, CreatingNeedsHardwareAndNeverImports) {
  EXPECT_EQ(keyStoreError([&] { store_->create("k", ProtectionClass::imported, kNow); }),
            KeyStoreError::unsupported("import has its own path"));
  for (ProtectionClass protection : {ProtectionClass::touchIDOnly, ProtectionClass::touchIDOrWatch,
                                     ProtectionClass::remoteApproval})
    EXPECT_EQ(keyStoreError([&] { store_->create("k", protection, kNow); }),
              KeyStoreError::secureEnclaveUnavailable());
  EXPECT_TRUE(store_->records().empty());
}

TEST_F(KeyStoreTest, RecordsSurviveReopeningInOrder) {
  const KeyRecord a = store_->generate(KeyAlgorithm::ed25519, "a", kNow);
  const KeyRecord b = store_->generate(KeyAlgorithm::ecdsaP384, "b", kNow + 1);
  EXPECT_EQ(a.createdAt, Date{1'780'000'000});
  EXPECT_EQ(a.protection, ProtectionClass::imported);
  EXPECT_EQ(openStore()->records(), (std::vector<KeyRecord>{a, b}));
  EXPECT_EQ(store_->record(b.publicKeyBlob), b);
  EXPECT_EQ(store_->record(a.id), a);

  const KeyRecord renamed = store_->rename(a.id, "renamed");
  EXPECT_EQ(renamed.name, "renamed");
  store_->remove(b.id);
  EXPECT_EQ(openStore()->records(), std::vector<KeyRecord>{renamed});
  EXPECT_FALSE(secrets_->read(b.id));

  const UUID unknown = UUID::random();
  EXPECT_EQ(keyStoreError([&] { store_->remove(unknown); }), KeyStoreError::unknownKey(unknown));
  EXPECT_EQ(keyStoreError([&] { store_->rename(unknown, "x"); }),
            KeyStoreError::unknownKey(unknown));
  EXPECT_EQ(keyStoreError([&] { store_->rename(a.id, "bad \xFF"); }),
            KeyStoreError::unsupported("the name is not UTF-8"));
}

TEST_F(KeyStoreTest, TheSameKeyIsAddedOnlyOnce) {
  const ImportedKey key = ImportedKey::generate(KeyAlgorithm::ecdsaP256);
  store_->add(key, "first", kNow);
  EXPECT_EQ(keyStoreError([&] { store_->add(key, "second", kNow); }),
            KeyStoreError::duplicateKey());
  EXPECT_EQ(store_->records().size(), 1u);
}

TEST_F(KeyStoreTest, RSAFlagsChooseTheAlgorithmAndSHA1IsRefused) {
  const KeyRecord rsa = store_->add(ImportedKey::generate(KeyAlgorithm::rsa, 2048), "rsa", kNow);
  EXPECT_EQ(keyStoreError([&] { store_->sign(rsa, kData, SignFlags{0}); }),
            KeyStoreError::rsaSHA1Refused());
  EXPECT_EQ(keyStoreError([&] { store_->sign(rsa, kData, SignFlags{8}); }),
            KeyStoreError::rsaSHA1Refused());
  const struct {
    uint32_t flags;
    const char* algorithm;
  } cases[] = {{2, "rsa-sha2-256"}, {6, "rsa-sha2-256"}, {4, "rsa-sha2-512"}};
  for (const auto& c : cases) {
    const Bytes signature = store_->sign(rsa, kData, SignFlags{c.flags});
    EXPECT_EQ(signatureAlgorithmOf(signature), c.algorithm) << c.flags;
    EXPECT_TRUE(verify(signature, kData, SSHPublicKey::parse(rsa.publicKeyBlob)));
  }
}

TEST_F(KeyStoreTest, ASecretThatIsGoneOrWrongIsNamed) {
  const KeyRecord record = store_->generate(KeyAlgorithm::ed25519, "k", kNow);
  const KeyRecord other = store_->generate(KeyAlgorithm::ed25519, "other", kNow);

  secrets_->store(record.id, Bytes(32, 0x42));  // a valid seed, but of another key
  EXPECT_EQ(keyStoreError([&] { store_->sign(record, kData, {}); }),
            KeyStoreError::invalidSecret(record.id));
  secrets_->store(record.id, bytesOf("short"));
  EXPECT_EQ(keyStoreError([&] { store_->sign(record, kData, {}); }),
            KeyStoreError::invalidSecret(record.id));
  keychain_->remove(KeychainSecretStore::kService, record.id.uuidString());
  EXPECT_EQ(keyStoreError([&] { store_->sign(record, kData, {}); }),
            KeyStoreError::keyMissing(record.id));
  EXPECT_EQ(store_->recordsWithoutSecrets(), std::vector<UUID>{record.id});
  EXPECT_TRUE(
      verify(store_->sign(other, kData, {}), kData, SSHPublicKey::parse(other.publicKeyBlob)));
}

// A key is read from its secret once; what changes outside the store is seen after a reload, and a
// removed key stops signing at once.
TEST_F(KeyStoreTest, KeepsKeysInUseUntilReloadOrRemoval) {
  const KeyRecord record = store_->generate(KeyAlgorithm::ed25519, "k", kNow);
  ASSERT_NO_THROW(store_->sign(record, kData, {}));
  secrets_->store(record.id, Bytes(32, 0x42));
  EXPECT_TRUE(
      verify(store_->sign(record, kData, {}), kData, SSHPublicKey::parse(record.publicKeyBlob)));
  store_->reload();
  EXPECT_EQ(keyStoreError([&] { store_->sign(record, kData, {}); }),
            KeyStoreError::invalidSecret(record.id));

  const KeyRecord other = store_->generate(KeyAlgorithm::ecdsaP256, "other", kNow);
  ASSERT_NO_THROW(store_->sign(other, kData, {}));
  store_->remove(other.id);
  EXPECT_EQ(keyStoreError([&] { store_->sign(other, kData, {}); }),
            KeyStoreError::keyMissing(other.id));
}

TEST_F(KeyStoreTest, GeneratesEveryAlgorithmAndOnlyLargeRSA) {
  for (auto [algorithm, bits] :
       {std::pair{KeyAlgorithm::ed25519, 0}, std::pair{KeyAlgorithm::ecdsaP256, 0},
        std::pair{KeyAlgorithm::ecdsaP384, 0}, std::pair{KeyAlgorithm::rsa, 3072}}) {
    const KeyRecord record = store_->generate(algorithm, "k", kNow, bits);
    EXPECT_EQ(record.algorithm, algorithm);
    EXPECT_TRUE(verify(store_->sign(record, kData, SignFlags::rsaSHA2_512), kData,
                       SSHPublicKey::parse(record.publicKeyBlob)));
  }
  EXPECT_EQ(keyStoreError([&] { store_->generate(KeyAlgorithm::rsa, "k", kNow, 2048); }).kind(),
            KeyStoreError::Kind::unsupported);
}

// A removal whose save fails after the secret is gone leaves a record that says why it cannot
// sign, and a second removal finishes.
TEST_F(KeyStoreTest, AHalfDoneRemovalIsVisibleAndCanBeFinished) {
  const KeyRecord record = store_->generate(KeyAlgorithm::ecdsaP256, "k", kNow);
  injectAtomicWriteFault(AtomicWriteStep::rename, EIO, recordsPath_);
  EXPECT_THROW(store_->remove(record.id), std::system_error);
  clearAtomicWriteFault();

  EXPECT_EQ(store_->records(), std::vector<KeyRecord>{record});
  EXPECT_EQ(openStore()->records(), std::vector<KeyRecord>{record});
  EXPECT_EQ(keyStoreError([&] { store_->sign(record, kData, {}); }),
            KeyStoreError::keyMissing(record.id));
  EXPECT_EQ(store_->recordsWithoutSecrets(), std::vector<UUID>{record.id});

  store_->remove(record.id);
  EXPECT_TRUE(openStore()->records().empty());
}

TEST_F(KeyStoreTest, AFailedAddLeavesNeitherRecordNorSecret) {
  injectAtomicWriteFault(AtomicWriteStep::syncFile, ENOSPC, recordsPath_);
  EXPECT_THROW(store_->generate(KeyAlgorithm::ed25519, "k", kNow), std::system_error);
  clearAtomicWriteFault();
  EXPECT_TRUE(store_->records().empty());
  size_t secrets = 0;
  for (const auto& entry : fs::directory_iterator(keychain_->folder()))
    secrets += entry.path().filename().string().starts_with(KeychainSecretStore::kService);
  EXPECT_EQ(secrets, 0u);
}

TEST_F(KeyStoreTest, ADamagedRecordsFileStopsTheStoreFromOpening) {
  store_->generate(KeyAlgorithm::ed25519, "k", kNow);
  const std::string good = testing::readFile(recordsPath_);
  store_->generate(KeyAlgorithm::ed25519, "k2", kNow);
  testing::writeFile(recordsPath_, good);
  EXPECT_THROW(openStore(), SealedFileError);
  EXPECT_THROW(store_->reload(), SealedFileError);
  EXPECT_EQ(store_->records().size(), 2u) << "a failed reload keeps the list";
}

TEST(KeyStoreWithoutSealing, KeepsRecordsInMemoryOnly) {
  testing::TemporaryDirectory directory;
  const fs::path path = directory.path() / "keys.json";
  KeyStore store(std::make_shared<InMemorySecretStore>(), path, nullptr);
  const KeyRecord record = store.generate(KeyAlgorithm::ecdsaP256, "k", kNow);
  EXPECT_EQ(store.records(), std::vector<KeyRecord>{record});
  EXPECT_FALSE(fs::exists(path));
}

TEST_F(KeyStoreTest, HardwareKeysSignThroughTheirBackEndAndOnlyAsP256) {
  store_ = openStore(std::make_shared<testing::SoftwareHardwareKeys>());
  const KeyRecord record = store_->create("hw", ProtectionClass::remoteApproval, kNow);
  EXPECT_EQ(record.algorithm, KeyAlgorithm::ecdsaP256);
  EXPECT_EQ(record.protection, ProtectionClass::remoteApproval);
  EXPECT_TRUE(
      verify(store_->sign(record, kData, {}), kData, SSHPublicKey::parse(record.publicKeyBlob)));

  KeyRecord notP256 = record;
  notP256.algorithm = KeyAlgorithm::ed25519;
  EXPECT_EQ(keyStoreError([&] { store_->sign(notP256, kData, {}); }),
            KeyStoreError::unsupported("ssh-ed25519 in the TPM"));
  EXPECT_EQ(keyStoreError([&] { openStore()->sign(record, kData, {}); }),
            KeyStoreError::secureEnclaveUnavailable());
}

// The JSON of records: field names, and refusal of records that could not be served.
TEST(KeyRecordJSON, RoundTripsAndRefusesWhatCannotBeServed) {
  const ImportedKey key = ImportedKey::generate(KeyAlgorithm::ecdsaP256);
  const KeyRecord record{*UUID::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"),
                         "laptop",
                         KeyAlgorithm::ecdsaP256,
                         ProtectionClass::touchIDOrWatch,
                         key.publicKey().blob,
                         Date{1'700'000'000}};
  const JSON json = toJSON(std::vector<KeyRecord>{record});
  EXPECT_EQ(json[0]["id"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
  EXPECT_EQ(json[0]["algorithm"], "ecdsa-sha2-nistp256");
  EXPECT_EQ(json[0]["protection"], "touchIDOrWatch");
  EXPECT_EQ(json[0]["createdAt"], "2023-11-14T22:13:20Z");
  EXPECT_EQ(json[0]["publicKeyBlob"], base64Encode(record.publicKeyBlob));
  EXPECT_EQ(decodeKeyRecords(JSONReader(json)), std::vector<KeyRecord>{record});

  const std::vector<std::pair<const char*, std::function<void(JSON&)>>> damages = {
      {"unknown algorithm", [](JSON& j) { j[0]["algorithm"] = "ssh-dss"; }},
      {"algorithm of another key", [](JSON& j) { j[0]["algorithm"] = "ssh-ed25519"; }},
      {"unknown protection", [](JSON& j) { j[0]["protection"] = "none"; }},
      {"blob not base64", [](JSON& j) { j[0]["publicKeyBlob"] = "@@"; }},
      {"blob not a key", [](JSON& j) { j[0]["publicKeyBlob"] = base64Encode(bytesOf("x")); }},
      {"no name", [](JSON& j) { j[0].erase("name"); }},
      {"date as number", [](JSON& j) { j[0]["createdAt"] = 1700000000; }},
      {"id twice", [](JSON& j) { j.push_back(j[0]); }},
  };
  for (const auto& [name, damage] : damages) {
    JSON damaged = json;
    damage(damaged);
    EXPECT_THROW(decodeKeyRecords(JSONReader(damaged)), DecodingError) << name;
  }
}

}  // namespace
}  // namespace quorvane
