// Keys, fingerprints and signatures checked against OpenSSH's ssh-keygen, run at test time.
#include <gtest/gtest.h>

#include <sstream>

#include "Base/Base64.h"
#include "Crypto/Hash.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SignPurpose.h"
#include "SSHWire/SignatureVerification.h"
#include "support/SSHSig.h"
#include "support/TestSigner.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::runCommand;
using testing::TemporaryDirectory;

struct KeygenKind {
  std::string type;
  std::string bits;
  SSHKeyType expected;
};

std::ostream& operator<<(std::ostream& out, const KeygenKind& k) {
  return out << k.type << "-" << k.bits;
}

// The fields of a one-line OpenSSH public key file: type, base64 blob, comment.
std::vector<std::string> fields(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> result;
  for (std::string field; stream >> field;) result.push_back(field);
  return result;
}

class SSHKeygenKey : public ::testing::TestWithParam<KeygenKind> {
 protected:
  void SetUp() override {
    keyPath_ = directory_.path() / "key";
    auto result = runCommand({"ssh-keygen", "-q", "-t", GetParam().type, "-b", GetParam().bits,
                              "-N", "", "-C", "test key", "-f", keyPath_.string()});
    ASSERT_EQ(result.exitCode, 0) << "ssh-keygen could not make a key";
    std::vector<std::string> line = fields(testing::readFile(keyPath_.string() + ".pub"));
    ASSERT_GE(line.size(), 2u);
    auto blob = base64Decode(line[1]);
    ASSERT_TRUE(blob.has_value());
    blob_ = *blob;
  }

  TemporaryDirectory directory_;
  std::filesystem::path keyPath_;
  Bytes blob_;
};

TEST_P(SSHKeygenKey, BlobParsesAndRebuildsByteForByte) {
  SSHPublicKey key = SSHPublicKey::parse(blob_);
  EXPECT_EQ(key.keyType(), GetParam().expected);
  EXPECT_EQ(key.blob, blob_);

  SSHPublicKey rebuilt = std::visit(
      [&](const auto& material) -> SSHPublicKey {
        using M = std::decay_t<decltype(material)>;
        if constexpr (std::is_same_v<M, SSHPublicKey::Ed25519>) {
          return SSHPublicKey::ed25519(material.key);
        } else if constexpr (std::is_same_v<M, SSHPublicKey::ECDSA>) {
          return SSHPublicKey::ecdsa(*key.keyType(), material.q);
        } else if constexpr (std::is_same_v<M, SSHPublicKey::RSA>) {
          return SSHPublicKey::rsa(material.e, material.n);
        } else {
          ADD_FAILURE() << "ssh-keygen made a key of an unknown type";
          return key;
        }
      },
      key.material);
  EXPECT_EQ(rebuilt.blob, blob_);
  EXPECT_EQ(rebuilt, key);
}

TEST_P(SSHKeygenKey, FingerprintMatchesSSHKeygen) {
  auto result = runCommand({"ssh-keygen", "-l", "-E", "sha256", "-f", keyPath_.string() + ".pub"});
  ASSERT_EQ(result.exitCode, 0);
  std::vector<std::string> line = fields(result.output);
  ASSERT_GE(line.size(), 2u);
  EXPECT_EQ(SSHPublicKey::parse(blob_).fingerprint(), line[1]);
}

TEST_P(SSHKeygenKey, VerifiesItsSignatureAndNothingWithAFlippedBit) {
  std::filesystem::path message = directory_.path() / "message.txt";
  testing::writeFile(message, "tree 4b825dc642cb6eb9a060e54bf8d69288fbee4904\n\nsigned commit\n");
  auto signing = runCommand(
      {"ssh-keygen", "-q", "-Y", "sign", "-f", keyPath_.string(), "-n", "git", message.string()});
  ASSERT_EQ(signing.exitCode, 0) << "ssh-keygen -Y sign failed";
  testing::SSHSigFile sig =
      testing::parseArmoredSSHSig(testing::readFile(message.string() + ".sig"));
  ASSERT_EQ(sig.publicKey, blob_);
  ASSERT_EQ(sig.hashAlgorithm, "sha512");

  SSHPublicKey key = SSHPublicKey::parse(blob_);
  Bytes messageHash = crypto::sha512(bytesOf(testing::readFile(message)));
  Bytes signedData = testing::sshSigSignedData(sig.namespace_, sig.hashAlgorithm, messageHash);
  SignPurpose expected{SignPurpose::SSHSig{"git", "sha512", messageHash}};
  EXPECT_EQ(SignPurpose::classify(signedData, blob_), expected);
  EXPECT_TRUE(verify(sig.signature, signedData, key));

  for (size_t bit = 0; bit < sig.signature.size() * 8; ++bit) {
    Bytes flipped = sig.signature;
    flipped[bit / 8] ^= static_cast<uint8_t>(1u << (bit % 8));
    EXPECT_FALSE(verify(flipped, signedData, key)) << "signature bit " << bit;
  }
  for (size_t byte : {size_t{0}, signedData.size() / 2, signedData.size() - 1}) {
    Bytes flipped = signedData;
    flipped[byte] ^= 0x01;
    EXPECT_FALSE(verify(sig.signature, flipped, key)) << "data byte " << byte;
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SSHKeygenKey,
                         ::testing::Values(KeygenKind{"ed25519", "256", SSHKeyType::ed25519},
                                           KeygenKind{"ecdsa", "256", SSHKeyType::ecdsaP256},
                                           KeygenKind{"ecdsa", "384", SSHKeyType::ecdsaP384},
                                           KeygenKind{"ecdsa", "521", SSHKeyType::ecdsaP521},
                                           KeygenKind{"rsa", "3072", SSHKeyType::rsa}));

struct BuiltSignature {
  SSHKeyType type;
  uint32_t flags;
};

std::ostream& operator<<(std::ostream& out, const BuiltSignature& b) {
  return out << keyTypeName(b.type) << " flags " << b.flags;
}

// Signature blobs from our builders, wrapped as SSH signature files, must satisfy ssh-keygen.
class SSHKeygenAcceptsOurSignature : public ::testing::TestWithParam<BuiltSignature> {};

TEST_P(SSHKeygenAcceptsOurSignature, InASignatureFile) {
  testing::TestSigner signer(GetParam().type);
  TemporaryDirectory directory;
  std::filesystem::path message = directory.path() / "message.txt";
  std::filesystem::path signature = directory.path() / "message.txt.sig";
  testing::writeFile(message, "a file to sign\n");

  // Several signatures, so that ECDSA halves both with and without the high bit are seen.
  for (int round = 0; round < 4; ++round) {
    Bytes hash = crypto::sha512(bytesOf(testing::readFile(message)));
    Bytes blob =
        signer.sign(testing::sshSigSignedData("file", "sha512", hash), SignFlags{GetParam().flags});
    ASSERT_TRUE(
        verify(blob, testing::sshSigSignedData("file", "sha512", hash), signer.publicKey()));
    testing::writeFile(signature,
                       testing::armorSSHSig({signer.publicKey().blob, "file", "sha512", blob}));
    auto check = runCommand(
        {"ssh-keygen", "-q", "-Y", "check-novalidate", "-n", "file", "-s", signature.string()},
        message);
    EXPECT_EQ(check.exitCode, 0) << "ssh-keygen refused round " << round;
  }
}

INSTANTIATE_TEST_SUITE_P(Kinds, SSHKeygenAcceptsOurSignature,
                         ::testing::Values(BuiltSignature{SSHKeyType::ed25519, 0},
                                           BuiltSignature{SSHKeyType::ecdsaP256, 0},
                                           BuiltSignature{SSHKeyType::ecdsaP384, 0},
                                           BuiltSignature{SSHKeyType::ecdsaP521, 0},
                                           BuiltSignature{SSHKeyType::rsa, 2},
                                           BuiltSignature{SSHKeyType::rsa, 4}));

}  // namespace
}  // namespace quorvane
