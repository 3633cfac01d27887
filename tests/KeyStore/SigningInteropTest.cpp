// Signatures made by the key store, checked by other programs: the openssl command on the raw
// signature (with the public key exported by ssh-keygen, or built from RFC 8410 for Ed25519), and
// `ssh-keygen -Y check-novalidate` on the signature wrapped as an SSH signature file.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/ecdsa.h>

#include <filesystem>
#include <map>
#include <memory>

#include "Base/Base64.h"
#include "Crypto/Hash.h"
#include "KeyStore/InMemorySecretStore.h"
#include "KeyStore/KeyStore.h"
#include "SignatureBlob.h"
#include "support/SSHSig.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;
using testing::runCommand;

struct SigningCase {
  KeyAlgorithm algorithm;
  uint32_t flags;
  const char* signatureAlgorithm;  // the name the blob must carry
  const char* digest;              // openssl's digest option; empty for Ed25519
};

std::ostream& operator<<(std::ostream& out, const SigningCase& c) {
  return out << c.signatureAlgorithm;
}

// DER ECDSA-Sig-Value from r || s, as openssl expects it.
Bytes derECDSASignature(ByteView raw) {
  ECDSA_SIG* signature = ECDSA_SIG_new();
  const int half = static_cast<int>(raw.size() / 2);
  ECDSA_SIG_set0(signature, BN_bin2bn(raw.data(), half, nullptr),
                 BN_bin2bn(raw.data() + half, half, nullptr));
  unsigned char* der = nullptr;
  const int length = i2d_ECDSA_SIG(signature, &der);
  Bytes out(der, der + length);
  OPENSSL_free(der);
  ECDSA_SIG_free(signature);
  return out;
}

// The PEM public key of an SSH public key blob, made without this project's code.
std::string publicKeyPEM(const KeyRecord& record, const fs::path& folder) {
  if (record.algorithm == KeyAlgorithm::ed25519) {
    // RFC 8410: SubjectPublicKeyInfo prefix for Ed25519, then the 32-byte key (the blob's end).
    Bytes spki = testing::hex("302a300506032b6570032100");
    spki.insert(spki.end(), record.publicKeyBlob.end() - 32, record.publicKeyBlob.end());
    return "-----BEGIN PUBLIC KEY-----\n" + base64Encode(spki) + "\n-----END PUBLIC KEY-----\n";
  }
  const fs::path pub = folder / "key.pub";
  testing::writeFile(pub, std::string(rawValue(record.algorithm)) + " " +
                              base64Encode(record.publicKeyBlob) + " test\n");
  auto exported = runCommand({"ssh-keygen", "-e", "-m", "PKCS8", "-f", pub.string()});
  EXPECT_EQ(exported.exitCode, 0);
  return exported.output;
}

class SigningInterop : public ::testing::TestWithParam<SigningCase> {
 protected:
  // One store with one key per algorithm for the whole suite: RSA keys are slow to make.
  static KeyRecord recordFor(KeyAlgorithm algorithm) {
    static std::map<KeyAlgorithm, KeyRecord> records;
    auto found = records.find(algorithm);
    if (found == records.end())
      found = records
                  .emplace(algorithm,
                           store().add(ImportedKey::generate(algorithm, 2048), "interop", Date{0}))
                  .first;
    return found->second;
  }
  static KeyStore& store() {
    static KeyStore instance(std::make_shared<InMemorySecretStore>(), "", nullptr);
    return instance;
  }

  // Whether openssl accepts `signature` over the file `data`.
  bool opensslVerifies(const KeyRecord& record, const fs::path& data, ByteView signature) {
    const fs::path pem = directory_.path() / "key.pem";
    const fs::path sig = directory_.path() / "signature.bin";
    testing::writeFile(pem, publicKeyPEM(record, directory_.path()));
    testing::writeFile(sig, textOf(signature));
    if (std::string(GetParam().digest).empty())
      return runCommand({"openssl", "pkeyutl", "-verify", "-pubin", "-inkey", pem.string(),
                         "-rawin", "-in", data.string(), "-sigfile", sig.string()})
                 .exitCode == 0;
    return runCommand({"openssl", "dgst", std::string("-") + GetParam().digest, "-verify",
                       pem.string(), "-signature", sig.string(), data.string()})
               .exitCode == 0;
  }

  testing::TemporaryDirectory directory_;
};

TEST_P(SigningInterop, OpenSSLAndSSHKeygenAcceptTheSignature) {
  const KeyRecord record = recordFor(GetParam().algorithm);
  const fs::path message = directory_.path() / "message.txt";
  testing::writeFile(message, "tree 4b825dc642cb6eb9a060e54bf8d69288fbee4904\n\ncommit\n");
  const Bytes signedData = testing::sshSigSignedData(
      "git", "sha512", crypto::sha512(bytesOf(testing::readFile(message))));
  const Bytes blob = store().sign(record, signedData, SignFlags{GetParam().flags});
  const testing::SignatureBlob parsed = testing::parseSignatureBlob(blob);
  EXPECT_EQ(parsed.algorithm, GetParam().signatureAlgorithm);

  // Raw signature for openssl: ECDSA as DER, the others as they are.
  Bytes raw = parsed.signature;
  if (record.algorithm == KeyAlgorithm::ecdsaP256 || record.algorithm == KeyAlgorithm::ecdsaP384)
    raw = derECDSASignature(
        testing::ecdsaRawSignature(blob, record.algorithm == KeyAlgorithm::ecdsaP256 ? 32 : 48));
  const fs::path data = directory_.path() / "signed-data.bin";
  testing::writeFile(data, textOf(signedData));
  EXPECT_TRUE(opensslVerifies(record, data, raw));
  Bytes altered = signedData;
  altered.at(altered.size() - 1) ^= 0x01;
  testing::writeFile(data, textOf(altered));
  EXPECT_FALSE(opensslVerifies(record, data, raw)) << "openssl must refuse other data";

  const fs::path armored = directory_.path() / "message.txt.sig";
  testing::writeFile(armored, testing::armorSSHSig({record.publicKeyBlob, "git", "sha512", blob}));
  EXPECT_EQ(runCommand(
                {"ssh-keygen", "-q", "-Y", "check-novalidate", "-n", "git", "-s", armored.string()},
                message)
                .exitCode,
            0);
}

INSTANTIATE_TEST_SUITE_P(
    EveryAlgorithm, SigningInterop,
    ::testing::Values(SigningCase{KeyAlgorithm::ed25519, 0, "ssh-ed25519", ""},
                      SigningCase{KeyAlgorithm::ecdsaP256, 0, "ecdsa-sha2-nistp256", "sha256"},
                      SigningCase{KeyAlgorithm::ecdsaP384, 0, "ecdsa-sha2-nistp384", "sha384"},
                      SigningCase{KeyAlgorithm::rsa, 2, "rsa-sha2-256", "sha256"},
                      SigningCase{KeyAlgorithm::rsa, 4, "rsa-sha2-512", "sha512"},
                      SigningCase{KeyAlgorithm::rsa, 6, "rsa-sha2-256", "sha256"}));

}  // namespace
}  // namespace quorvane
