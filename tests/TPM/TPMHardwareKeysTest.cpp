#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>

#include "KeyStore/FixedSealingKey.h"
#include "KeyStore/ImportedKey.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/KeyStore.h"
#include "KeyStore/KeyStoreError.h"
#include "KeyStore/KeychainSecretStore.h"
#include "Platform/FileKeychain.h"
#include "SSHWire/SignatureVerification.h"
#include "TPM/TPMHardwareKeys.h"
#include "TPM/TPMKeyBlob.h"
#include "support/SoftwareTPM.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

const Date kNow{1'800'000'000};

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

// Whether any 32-byte window of any file under `folder` is the P-256 private scalar of
// `publicKeyBlob`: a key written out in the clear, wherever it hides.
bool holdsPrivateKeyOf(const std::filesystem::path& folder, const Bytes& publicKeyBlob) {
  for (const auto& entry : std::filesystem::recursive_directory_iterator(folder)) {
    if (!entry.is_regular_file()) continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const Bytes bytes{std::istreambuf_iterator<char>(file), {}};
    for (size_t offset = 0; offset + 32 <= bytes.size(); ++offset) {
      std::optional<ImportedKey> key =
          ImportedKey::fromSecret(KeyAlgorithm::ecdsaP256, ByteView(bytes).subspan(offset, 32));
      if (key && key->publicKey().blob == publicKeyBlob) return true;
    }
  }
  return false;
}

// A key store whose hardware keys live in a software TPM, with its secrets in memory.
class TPMKeys : public ::testing::Test {
 protected:
  void SetUp() override {
    if (!testing::SoftwareTPM::installed()) GTEST_SKIP() << "swtpm is not installed";
    tpm = std::make_unique<testing::SoftwareTPM>(folder.path() / "tpm");
    hardware = std::make_shared<TPMHardwareKeys>(tpm->tcti());
    store = std::make_shared<KeyStore>(secrets, "", nullptr, hardware);
  }

  testing::TemporaryDirectory folder;
  std::unique_ptr<testing::SoftwareTPM> tpm;
  std::shared_ptr<TPMHardwareKeys> hardware;
  std::shared_ptr<InMemorySecretStore> secrets = std::make_shared<InMemorySecretStore>();
  std::shared_ptr<KeyStore> store;
};

TEST_F(TPMKeys, MakesP256KeysWhoseSignaturesVerify) {
  ASSERT_TRUE(hardware->available());
  const KeyRecord record = store->create("laptop", ProtectionClass::remoteApproval, kNow);
  EXPECT_EQ(record.algorithm, KeyAlgorithm::ecdsaP256);
  const SSHPublicKey publicKey = SSHPublicKey::parse(record.publicKeyBlob);
  for (const std::string& text : {std::string(), std::string("one"), std::string(5000, 'x')}) {
    const Bytes signature = store->sign(record, bytesOf(text), {});
    EXPECT_TRUE(verify(signature, bytesOf(text), publicKey)) << text.size();
    EXPECT_FALSE(verify(signature, bytesOf(text + "!"), publicKey));
  }

  // The stored secret is the wrapped key, whose public part is the record's key.
  std::optional<TPMKeyBlob> blob = decodeTPMKeyBlob(secrets->read(record.id)->view());
  ASSERT_TRUE(blob);
  EXPECT_EQ(SSHPublicKey::ecdsa(SSHKeyType::ecdsaP256, *p256Point(blob->publicPart)).blob,
            record.publicKeyBlob);
}

// A PIN key signs with its PIN only; wrong PINs are counted, and Quorvane stops one try short of
// the TPM's lockout and says how long to wait. Keys without a PIN are never locked out.
TEST_F(TPMKeys, PINKeysSignOnlyWithTheirPINAndStopBeforeTheLockout) {
  const SecureBytes pin(bytesOf("2468"));
  EXPECT_EQ(keyStoreError([&] { store->create("bad", ProtectionClass::touchIDOnly, kNow); }),
            KeyStoreError::accessControl("a key that needs your presence needs a PIN"));
  const KeyRecord withPIN = store->create("pin", ProtectionClass::touchIDOnly, kNow, &pin);
  const KeyRecord plain = store->create("plain", ProtectionClass::remoteApproval, kNow);
  const Bytes data = bytesOf("data");
  EXPECT_TRUE(verify(store->sign(withPIN, data, {}, &pin), data,
                     SSHPublicKey::parse(withPIN.publicKeyBlob)));
  EXPECT_NO_THROW(store->checkPIN(withPIN, pin));
  EXPECT_EQ(keyStoreError([&] { store->sign(withPIN, data, {}); }),
            KeyStoreError::accessControl("the key signs only with its PIN"));

  const SecureBytes wrong(bytesOf("1357"));
  uint32_t expected = 0;
  {
    KeyStoreError first = keyStoreError([&] { store->checkPIN(withPIN, wrong); });
    ASSERT_EQ(first.kind(), KeyStoreError::Kind::wrongPIN) << first.what();
    expected = first.count();
  }
  while (expected > 1) {
    --expected;
    EXPECT_EQ(keyStoreError([&] { store->checkPIN(withPIN, wrong); }),
              KeyStoreError::wrongPIN(expected));
  }
  // The last wrong PIN that Quorvane sends ends the tries, with the wait; after it not even the
  // right PIN is sent, so the TPM never reaches its own lockout.
  const KeyStoreError last = keyStoreError([&] { store->checkPIN(withPIN, wrong); });
  EXPECT_EQ(last.kind(), KeyStoreError::Kind::pinLockedOut);
  EXPECT_GT(last.count(), 0u);
  EXPECT_EQ(keyStoreError([&] { store->checkPIN(withPIN, pin); }), last);
  EXPECT_NE(std::string(last.what()).find("the TPM takes PINs again in about"), std::string::npos);
  EXPECT_NO_THROW(store->sign(plain, data, {}));
}

// A P-256 key moved into the TPM keeps its public key and signs there; its stored secret is the
// TPM's wrapped form, not the scalar. Other key types are refused with the reason.
TEST_F(TPMKeys, ImportedP256KeysSignInTheTPM) {
  const ImportedKey software = ImportedKey::generate(KeyAlgorithm::ecdsaP256);
  const KeyRecord record = store->addToHardware(software, "moved", kNow);
  EXPECT_EQ(record.publicKeyBlob, software.publicKey().blob);
  EXPECT_EQ(record.protection, ProtectionClass::remoteApproval);
  EXPECT_TRUE(decodeTPMKeyBlob(secrets->read(record.id)->view()));
  const Bytes data = bytesOf("moved key");
  EXPECT_TRUE(verify(store->sign(record, data, {}), data, software.publicKey()));
  EXPECT_EQ(keyStoreError([&] { store->addToHardware(software, "again", kNow); }),
            KeyStoreError::duplicateKey());
  for (KeyAlgorithm algorithm : {KeyAlgorithm::ed25519, KeyAlgorithm::ecdsaP384})
    EXPECT_EQ(keyStoreError([&] {
                store->addToHardware(ImportedKey::generate(algorithm), "other", kNow);
              }).kind(),
              KeyStoreError::Kind::unsupported);
}

TEST(TPMSafeTries, KeepOneTryInReserve) {
  EXPECT_EQ(TPMHardwareKeys::safeTries(0, 3), 2u);
  EXPECT_EQ(TPMHardwareKeys::safeTries(1, 3), 1u);
  EXPECT_EQ(TPMHardwareKeys::safeTries(2, 3), 0u);
  EXPECT_EQ(TPMHardwareKeys::safeTries(3, 3), 0u);
  EXPECT_EQ(TPMHardwareKeys::safeTries(0, 0), 0u);
}

TEST_F(TPMKeys, AStoredKeyDoesNotLoadInAnotherTPM) {
  const KeyRecord record = store->create("laptop", ProtectionClass::remoteApproval, kNow);
  testing::SoftwareTPM otherTPM(folder.path() / "other");
  KeyStore elsewhere(secrets, "", nullptr, std::make_shared<TPMHardwareKeys>(otherTPM.tcti()));
  EXPECT_EQ(keyStoreError([&] { elsewhere.sign(record, bytesOf("x"), {}); }),
            KeyStoreError::invalidSecret(record.id));
  // The first TPM still takes it.
  EXPECT_NO_THROW(store->sign(record, bytesOf("x"), {}));
}

TEST_F(TPMKeys, SecretsThatAreNotWrappedKeysAreRefused) {
  const KeyRecord record = store->create("laptop", ProtectionClass::remoteApproval, kNow);
  const SecureBytes stored = *secrets->read(record.id);
  const Bytes blob(stored.view().begin(), stored.view().end());
  Bytes longer = blob;
  longer.push_back(0);
  Bytes flipped = blob;
  flipped[blob.size() - 5] ^= 1;  // inside the wrapped private part: the TPM's integrity check
  for (const Bytes& secret : {Bytes{}, Bytes(blob.begin(), blob.end() - 1), longer, flipped}) {
    secrets->store(record.id, secret);
    EXPECT_EQ(keyStoreError([&] { store->sign(record, bytesOf("x"), {}); }),
              KeyStoreError::invalidSecret(record.id))
        << secret.size();
  }
}

// The files a key store writes hold the scalar of a software key (the scan finds it) but nothing
// of a TPM key, whose private part leaves the TPM only wrapped.
TEST_F(TPMKeys, TheStoredFilesHoldNoPrivateKey) {
  const std::filesystem::path state = folder.path() / "state";
  auto keychain = std::make_shared<FileKeychain>(state / "keychain");
  KeyStore onDisk(std::make_shared<KeychainSecretStore>(keychain), state / "keys.json",
                  std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 9))), hardware);
  const KeyRecord software = onDisk.generate(KeyAlgorithm::ecdsaP256, "software", kNow);
  const KeyRecord inTPM = onDisk.create("tpm", ProtectionClass::remoteApproval, kNow);
  EXPECT_TRUE(holdsPrivateKeyOf(state, software.publicKeyBlob));
  EXPECT_FALSE(holdsPrivateKeyOf(state, inTPM.publicKeyBlob));
}

TEST(TPMWithoutTPM, IsUnavailableWithTheReasonAndRefusesToMakeKeys) {
  testing::TemporaryDirectory folder;
  struct Case {
    std::string tcti;
    std::string problem;
  };
  for (const Case& c :
       {Case{"device:" + (folder.path() / "tpmrm0").string(), "does not exist"},
        Case{"swtpm:path=" + (folder.path() / "nothing").string(), "cannot connect"}}) {
    auto hardware = std::make_shared<TPMHardwareKeys>(c.tcti);
    EXPECT_FALSE(hardware->available());
    EXPECT_NE(hardware->problem().value_or("").find(c.problem), std::string::npos)
        << hardware->problem().value_or("");
    KeyStore store(std::make_shared<InMemorySecretStore>(), "", nullptr, hardware);
    EXPECT_EQ(keyStoreError([&] { store.create("k", ProtectionClass::remoteApproval, kNow); }),
              KeyStoreError::secureEnclaveUnavailable());
  }
}

TEST(TPMConfiguration, TheTCTIComesFromTheEnvironmentElseTheKernelDevice) {
  const char* saved = std::getenv(TPMHardwareKeys::kTCTIVariable);
  const std::optional<std::string> before =
      saved ? std::optional<std::string>(saved) : std::nullopt;
  ::unsetenv(TPMHardwareKeys::kTCTIVariable);
  EXPECT_EQ(TPMHardwareKeys::configuredTCTI(), "device:/dev/tpmrm0");
  ::setenv(TPMHardwareKeys::kTCTIVariable, "", 1);
  EXPECT_EQ(TPMHardwareKeys::configuredTCTI(), "device:/dev/tpmrm0");
  ::setenv(TPMHardwareKeys::kTCTIVariable, "swtpm:path=/tmp/x", 1);
  EXPECT_EQ(TPMHardwareKeys::configuredTCTI(), "swtpm:path=/tmp/x");
  if (before)
    ::setenv(TPMHardwareKeys::kTCTIVariable, before->c_str(), 1);
  else
    ::unsetenv(TPMHardwareKeys::kTCTIVariable);
}

}  // namespace
}  // namespace quorvane
