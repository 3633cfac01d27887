// OpenSSH private key files made by ssh-keygen at test time: every key type and cipher that
// ssh-keygen writes, and containers changed field by field to reach each refusal.
#include <gtest/gtest.h>

#include <functional>
#include <nlohmann/json.hpp>
#include <sstream>

#include "Base/Base64.h"
#include "Base/Hex.h"
#include "Crypto/Hash.h"
#include "ImportTestSupport.h"
#include "SSHWire/WireReader.h"
#include "SSHWire/WireWriter.h"

namespace quorvane {
namespace {

using testing::importError;
using testing::OpenSSHContainer;
using testing::readFile;
using Kind = KeyImportError::Kind;

constexpr const char* kPassphrase = "correct horse";

struct GeneratedKey {
  std::string type;
  int bits;
  KeyAlgorithm algorithm;
};

std::ostream& operator<<(std::ostream& out, const GeneratedKey& k) {
  return out << k.type << k.bits;
}

class PlainOpenSSHKey : public ::testing::TestWithParam<GeneratedKey> {};

TEST_P(PlainOpenSSHKey, ImportsWithCommentAndSigns) {
  const auto file = testing::sshKeygenKey("key", GetParam().type, GetParam().bits);
  const ParsedPrivateKey parsed = testing::expectImportsAndSigns(file);
  EXPECT_EQ(parsed.key.algorithm(), GetParam().algorithm);
  EXPECT_EQ(parsed.comment, "imported key");
  if (GetParam().algorithm == KeyAlgorithm::rsa) {
    EXPECT_EQ(parsed.key.bits(), GetParam().bits);
  }
}

INSTANTIATE_TEST_SUITE_P(SSHKeygen, PlainOpenSSHKey,
                         ::testing::Values(GeneratedKey{"ed25519", 0, KeyAlgorithm::ed25519},
                                           GeneratedKey{"ecdsa", 256, KeyAlgorithm::ecdsaP256},
                                           GeneratedKey{"ecdsa", 384, KeyAlgorithm::ecdsaP384},
                                           GeneratedKey{"rsa", 2048, KeyAlgorithm::rsa},
                                           GeneratedKey{"rsa", 3072, KeyAlgorithm::rsa},
                                           GeneratedKey{"rsa", 4096, KeyAlgorithm::rsa}));

struct EncryptedCase {
  std::string cipher;
  GeneratedKey key;
};

std::ostream& operator<<(std::ostream& out, const EncryptedCase& c) { return out << c.cipher; }

// Every cipher that ssh-keygen -Z offers and the importer reads, each on a different key type.
class EncryptedOpenSSHKey : public ::testing::TestWithParam<EncryptedCase> {};

TEST_P(EncryptedOpenSSHKey, DecryptsOnlyWithTheRightPassphrase) {
  const auto file = testing::sshKeygenKey("key", GetParam().key.type, GetParam().key.bits);
  testing::sshKeygenReencrypt(file, kPassphrase, GetParam().cipher, 16);
  const std::string text = readFile(file);
  EXPECT_EQ(OpenSSHContainer::read(text).cipher, GetParam().cipher);

  EXPECT_EQ(testing::expectImportsAndSigns(file, kPassphrase).key.algorithm(),
            GetParam().key.algorithm);
  EXPECT_EQ(importError(text, "correct horsf"), KeyImportError::wrongPassphrase());
  EXPECT_EQ(importError(text, ""), KeyImportError::passphraseRequired());
}

INSTANTIATE_TEST_SUITE_P(
    SSHKeygen, EncryptedOpenSSHKey,
    ::testing::Values(EncryptedCase{"aes128-ctr", {"ed25519", 0, KeyAlgorithm::ed25519}},
                      EncryptedCase{"aes192-ctr", {"ecdsa", 256, KeyAlgorithm::ecdsaP256}},
                      EncryptedCase{"aes256-ctr", {"rsa", 2048, KeyAlgorithm::rsa}},
                      EncryptedCase{"aes128-cbc", {"ecdsa", 384, KeyAlgorithm::ecdsaP384}},
                      EncryptedCase{"aes192-cbc", {"ed25519", 0, KeyAlgorithm::ed25519}},
                      EncryptedCase{"aes256-cbc", {"ecdsa", 256, KeyAlgorithm::ecdsaP256}},
                      EncryptedCase{"3des-cbc", {"ed25519", 0, KeyAlgorithm::ed25519}},
                      EncryptedCase{"aes128-gcm@openssh.com", {"rsa", 2048, KeyAlgorithm::rsa}},
                      EncryptedCase{"aes256-gcm@openssh.com",
                                    {"ed25519", 0, KeyAlgorithm::ed25519}}));

// OpenSSH's own encrypted test keys, with the intermediate values recorded beside them: the
// private section that decryption yields must hash to the recorded digest.
TEST(OpenSSHFixtures, DecryptTheRecordedPrivateSections) {
  const auto fixtures = nlohmann::json::parse(
      readFile(testing::testDataPath("openssh/openssh_bcrypt_fixtures.json")));
  for (const auto& fixture : fixtures) {
    const std::string file = fixture["file"];
    const std::string text = readFile(testing::testDataPath("openssh/" + file));
    const OpenSSHContainer container = OpenSSHContainer::read(text);
    const OpenSSHCipher cipher = OpenSSHCipher::named(container.cipher);
    const SecureBytes plain = KeyImporter::decryptPrivateSection(
        cipher, testing::hex(fixture["derived_key"].get<std::string>()),
        testing::hex(fixture["derived_iv"].get<std::string>()), container.privateSection, {});
    EXPECT_EQ(hexEncode(crypto::sha256(plain.view())), fixture["decrypted_section_sha256"]) << file;

    const std::string passphrase = fixture["passphrase"];
    if (file == "rsa_n_pw") {
      // A 1024-bit key: decrypted, then refused by size.
      EXPECT_EQ(importError(text, passphrase), KeyImportError::rsaKeyTooSmall(1024));
      continue;
    }
    const ParsedPrivateKey parsed = KeyImporter::parse(text, testing::passphraseOf(passphrase));
    const std::string publicFile = fixture["public_key_file"];
    std::istringstream line(readFile(testing::testDataPath("openssh/" + publicFile)));
    std::string type, blob;
    line >> type >> blob;
    EXPECT_EQ(parsed.publicKey.type, type);
    EXPECT_EQ(base64Encode(parsed.publicKey.blob), blob) << file;
  }
}

TEST(OpenSSHImport, ChaChaPolyIsRefusedByName) {
  const auto file = testing::sshKeygenKey("key", "ed25519");
  testing::sshKeygenReencrypt(file, kPassphrase, "chacha20-poly1305@openssh.com", 16);
  EXPECT_EQ(importError(readFile(file), kPassphrase),
            KeyImportError::unsupportedCipher("chacha20-poly1305@openssh.com"));
}

struct RefusedKeyType {
  std::string type;
  int bits;
  KeyImportError expected;
};

void PrintTo(const RefusedKeyType& c, std::ostream* out) { *out << c.type << " " << c.bits; }

class OpenSSHImportKeyType : public ::testing::TestWithParam<RefusedKeyType> {};

TEST_P(OpenSSHImportKeyType, IsNotImported) {
  const RefusedKeyType& c = GetParam();
  const auto file = testing::sshKeygenKey(c.type + std::to_string(c.bits), c.type, c.bits);
  EXPECT_EQ(importError(readFile(file)), c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    ByTheirOwnTool, OpenSSHImportKeyType,
    ::testing::Values(RefusedKeyType{"rsa", 1024, KeyImportError::rsaKeyTooSmall(1024)},
                      RefusedKeyType{"ecdsa", 521,
                                     KeyImportError::unsupportedKeyType("ecdsa-sha2-nistp521")},
                      RefusedKeyType{"dsa", 1024, KeyImportError::unsupportedKeyType("ssh-dss")}));

// The most expensive derivation that is accepted; ssh-keygen takes as long to write it as the
// importer takes to read it.
TEST(OpenSSHImport, AcceptsTheRoundsLimitAndRefusesOneMore) {
  const auto file = testing::sshKeygenKey("key", "ed25519");
  const SSHPublicKey expected = testing::sshKeygenPublicKey(file);
  testing::sshKeygenReencrypt(file, kPassphrase, "aes256-ctr", 1024);
  const std::string text = readFile(file);
  EXPECT_EQ(KeyImporter::parse(text, testing::passphraseOf(kPassphrase)).publicKey, expected);

  // ssh-keygen would write 1025 rounds too, but costs seconds doing so; the limit is checked
  // before any derivation, so the rounds field is rewritten instead.
  OpenSSHContainer container = OpenSSHContainer::read(text);
  WireReader options(container.kdfOptions);
  const Bytes salt = options.readString();
  EXPECT_EQ(options.readUInt32(), 1024u);
  WireWriter rewritten;
  rewritten.writeString(salt);
  rewritten.writeUInt32(1025);
  container.kdfOptions = std::move(rewritten).take();
  EXPECT_EQ(importError(container.armored(), kPassphrase),
            KeyImportError::unsupportedFormat("bcrypt with 1025 rounds (at most 1024)"));
}

// Changes to a container that ssh-keygen wrote, each with the refusal it must cause.
struct ContainerChange {
  const char* name;
  bool encrypted;  // a GCM container with passphrase kPassphrase, else a plain one
  std::function<void(OpenSSHContainer&)> change;
  KeyImportError expected;
};

std::ostream& operator<<(std::ostream& out, const ContainerChange& c) { return out << c.name; }

Bytes kdfOptions(ByteView salt, uint32_t rounds) {
  WireWriter writer;
  writer.writeString(salt);
  writer.writeUInt32(rounds);
  return std::move(writer).take();
}

// The plain private section rebuilt from its fields with the padding that `pad` gives.
void repad(OpenSSHContainer& c, const std::function<void(Bytes&)>& pad) {
  WireReader section(c.privateSection);
  WireWriter writer;
  writer.writeUInt32(section.readUInt32());
  writer.writeUInt32(section.readUInt32());
  writer.writeString(section.readString());
  writer.writeString(section.readString());
  writer.writeString(section.readString());
  writer.writeString(section.readString());
  c.privateSection = std::move(writer).take();
  pad(c.privateSection);
}

const ContainerChange kContainerChanges[] = {
    {"NoKeys", false, [](auto& c) { c.keyCount = 0; }, KeyImportError::malformed()},
    {"TwoKeys", false, [](auto& c) { c.keyCount = 2; }, KeyImportError::multipleKeys()},
    {"UnknownKDF", false, [](auto& c) { c.kdf = "scrypt"; },
     KeyImportError::unsupportedFormat("key derivation scrypt")},
    {"BcryptWithoutCipher", false,
     [](auto& c) {
       c.kdf = "bcrypt";
       c.kdfOptions = kdfOptions(Bytes(16, 1), 16);
     },
     KeyImportError::malformed()},
    {"OptionsForNoKDF", false, [](auto& c) { c.kdfOptions = Bytes{0}; },
     KeyImportError::malformed()},
    {"CipherWithoutKDF", true,
     [](auto& c) {
       c.kdf = "none";
       c.kdfOptions.clear();
     },
     KeyImportError::malformed()},
    {"EmptySalt", true, [](auto& c) { c.kdfOptions = kdfOptions({}, 16); },
     KeyImportError::malformed()},
    {"ZeroRounds", true, [](auto& c) { c.kdfOptions = kdfOptions(Bytes(16, 1), 0); },
     KeyImportError::malformed()},
    {"TrailingOptionBytes", true, [](auto& c) { c.kdfOptions.push_back(0); },
     KeyImportError::malformed()},
    {"UnknownCipherBeforeLayout", true,
     [](auto& c) {
       c.cipher = "aes192-gcm@openssh.com";
       c.tail.clear();
     },
     KeyImportError::unsupportedCipher("aes192-gcm@openssh.com")},
    {"TagByteMissing", true, [](auto& c) { c.tail.pop_back(); }, KeyImportError::malformed()},
    {"TagByteExtra", true, [](auto& c) { c.tail.push_back(0); }, KeyImportError::malformed()},
    {"TagByteFlipped", true, [](auto& c) { c.tail[3] ^= 0x40; }, KeyImportError::wrongPassphrase()},
    {"TrailingByteWithoutTag", false, [](auto& c) { c.tail.push_back(0); },
     KeyImportError::malformed()},
    {"SectionOf20Bytes", false, [](auto& c) { c.privateSection.resize(20); },
     KeyImportError::malformed()},
    {"CheckIntegersDiffer", false, [](auto& c) { c.privateSection[0] ^= 1; },
     KeyImportError::malformed()},
    {"WrongPadding", false,
     [](auto& c) { repad(c, [](Bytes& s) {
                     s.insert(s.end(), {1, 2, 4, 4});
                   }); },
     KeyImportError::malformed()},
    {"OtherTypeInside", false, [](auto& c) { c.privateSection[8 + 4 + 10] ^= 1; },
     KeyImportError::inconsistentKey()},
    {"InnerPublicKeyChanged", false,
     // The public key inside the section no longer ends the private key string.
     [](auto& c) { c.privateSection[8 + 4 + 11 + 4] ^= 1; }, KeyImportError::malformed()},
    {"OtherPublicKey", false, [](auto& c) { c.publicKey.back() ^= 1; },
     KeyImportError::inconsistentKey()},
    {"UnknownPublicKeyType", false,
     [](auto& c) {
       WireWriter blob;
       blob.writeString(std::string_view("sk-ssh-ed25519@openssh.com"));
       c.publicKey = std::move(blob).take();
     },
     KeyImportError::unsupportedKeyType("sk-ssh-ed25519@openssh.com")},
};

// The key of these containers: an Ed25519 key with a 1-byte comment, whose plain private section
// (8 + 15 + 36 + 68 + 5 = 132 bytes) is padded by 4 bytes to a multiple of 8 and of 16.
class ChangedContainer : public ::testing::TestWithParam<ContainerChange> {
 protected:
  static std::filesystem::path keyFile(bool encrypted) {
    const auto path = testing::keyDirectory() / (encrypted ? "gcm" : "plain");
    if (!std::filesystem::exists(path)) {
      testing::runTool(
          {"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "x", "-f", path.string()});
      if (encrypted) testing::sshKeygenReencrypt(path, kPassphrase, "aes256-gcm@openssh.com", 16);
    }
    return path;
  }
};

TEST_P(ChangedContainer, IsRefused) {
  const std::string text = readFile(keyFile(GetParam().encrypted));
  const std::string passphrase = GetParam().encrypted ? kPassphrase : "";
  ASSERT_NO_THROW(KeyImporter::parse(text, testing::passphraseOf(passphrase)));
  OpenSSHContainer container = OpenSSHContainer::read(text);
  GetParam().change(container);
  EXPECT_EQ(importError(container.armored(), passphrase), GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(Changes, ChangedContainer, ::testing::ValuesIn(kContainerChanges),
                         testing::caseName<ContainerChange>);

TEST(OpenSSHImport, AcceptsASectionWithoutPadding) {
  // Comment "abcde": 8 + 15 + 36 + 68 + 9 = 136 bytes, a whole number of 8-byte blocks.
  const auto path = testing::keyDirectory() / "unpadded";
  testing::runTool(
      {"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-C", "abcde", "-f", path.string()});
  const OpenSSHContainer container = OpenSSHContainer::read(readFile(path));
  ASSERT_EQ(container.privateSection.size(), 136u);
  EXPECT_EQ(testing::expectImportsAndSigns(path).comment, "abcde");
}

TEST(OpenSSHImport, EveryTruncationAndAppendedByteIsMalformed) {
  const auto path = testing::sshKeygenKey("key", "ecdsa", 256);
  const Bytes body = OpenSSHContainer::read(readFile(path)).encode();
  for (size_t length = 1; length < body.size(); ++length)
    EXPECT_EQ(importError(testing::armor("OPENSSH PRIVATE KEY", ByteView(body).first(length))),
              KeyImportError::malformed())
        << length;
  Bytes longer = body;
  longer.push_back(0);
  EXPECT_EQ(importError(testing::armor("OPENSSH PRIVATE KEY", longer)),
            KeyImportError::malformed());
}

TEST(OpenSSHImport, BlockWithAHeaderIsMalformed) {
  std::string text = readFile(testing::sshKeygenKey("key", "ed25519"));
  text.insert(text.find('\n') + 1, "Comment: a header\n");
  EXPECT_EQ(importError(text), KeyImportError::malformed());
}

}  // namespace
}  // namespace quorvane
