// PKCS#1 and SEC1 numbers that do not belong together, and the limits that PEM files are held
// to: RSA sizes, PBKDF2 iterations, legacy encryption headers.
#include <gtest/gtest.h>

#include <algorithm>

#include "ImportTestSupport.h"
#include "KeyImport/DERReader.h"
#include "KeyImport/RSAComponents.h"
#include "PEMTestSupport.h"

namespace quorvane {
namespace {

using namespace testing::pem;
using testing::importError;
using testing::readFile;

// The numbers of a PKCS#1 RSAPrivateKey.
RSAComponents rsaComponents(const Bytes& der) {
  DERReader outer(der);
  DERReader key = outer.readConstructed();
  key.readSmallInteger();
  RSAComponents c;
  auto next = [&] { return key.readUnsignedInteger(); };
  ByteView n = next(), e = next();
  c.n.assign(n.begin(), n.end());
  c.e.assign(e.begin(), e.end());
  for (SecureBytes* secret : {&c.d, &c.p, &c.q, &c.dP, &c.dQ, &c.qInv})
    *secret = SecureBytes(next());
  return c;
}

SecureBytes changedLastByte(const SecureBytes& bytes) {
  SecureBytes changed = bytes;
  changed.data()[changed.size() - 1] ^= 2;
  return changed;
}

TEST(PEMImport, RSANumbersThatDoNotBelongTogetherAreInconsistent) {
  const auto path = makeFile({kRSA, "openssl rsa -in {base} -traditional -out {out}"});
  const Bytes der = bodyOf(readFile(path));
  const RSAComponents original = rsaComponents(der);
  EXPECT_EQ(original.pkcs1DER().view().size(), der.size());
  EXPECT_TRUE(std::equal(der.begin(), der.end(), original.pkcs1DER().view().begin()));

  std::vector<std::pair<const char*, RSAComponents>> changes;
  changes.emplace_back("e", original);
  changes.back().second.e.back() += 2;
  changes.emplace_back("n", original);
  changes.back().second.n.back() ^= 2;
  // OpenSSL recomputes a CRT result that fails its own check with d, so d and dP both change.
  changes.emplace_back("d and dP", original);
  changes.back().second.d = changedLastByte(original.d);
  changes.back().second.dP = changedLastByte(original.dP);
  for (const auto& [name, components] : changes) {
    const SecureBytes changed = components.pkcs1DER();
    EXPECT_EQ(importError(testing::armor("RSA PRIVATE KEY", changed.view())),
              KeyImportError::inconsistentKey())
        << name;
  }
}

TEST(PEMImport, SEC1PublicKeyMustBelongToThePrivateKey) {
  const auto path = makeFile({"openssl ecparam -name prime256v1 -genkey -noout -out {out}"});
  Bytes der = bodyOf(readFile(path));
  der.back() ^= 1;  // the last byte of the public point
  EXPECT_EQ(importError(testing::armor("EC PRIVATE KEY", der)), KeyImportError::inconsistentKey());
}

struct RSASizeCase {
  int bits;
  KeyImportError expected;
};

void PrintTo(const RSASizeCase& c, std::ostream* out) { *out << c.bits << " bits"; }

class PEMImportRSASize : public ::testing::TestWithParam<RSASizeCase> {};

TEST_P(PEMImportRSASize, RuleComesBeforeAnyOtherCheck) {
  const RSASizeCase& c = GetParam();
  RSAComponents components;
  components.n = Bytes(static_cast<size_t>((c.bits + 7) / 8), 0xff);
  components.n[0] = static_cast<uint8_t>(0xff >> ((8 - c.bits % 8) % 8));
  components.e = {0x01, 0x00, 0x01};
  for (SecureBytes* secret : {&components.d, &components.p, &components.q, &components.dP,
                              &components.dQ, &components.qInv})
    *secret = SecureBytes(Bytes{0x03});
  EXPECT_EQ(importError(testing::armor("RSA PRIVATE KEY", components.pkcs1DER().view())),
            c.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Bits, PEMImportRSASize,
    ::testing::Values(
        RSASizeCase{2047, KeyImportError::rsaKeyTooSmall(2047)},
        RSASizeCase{8192, KeyImportError::inconsistentKey()},  // allowed; the numbers are made up
        RSASizeCase{8193, KeyImportError::unsupportedKeyType("ssh-rsa with 8193 bits")},
        RSASizeCase{16384, KeyImportError::unsupportedKeyType("ssh-rsa with 16384 bits")}));

// The iteration limit is checked before the passphrase is asked for, so the boundary shows
// without a passphrase; the key at the limit also decrypts.
TEST(PEMImport, AcceptsTheIterationLimitAndRefusesOneMore) {
  const auto path = makeFile({kEd25519,
                              "openssl pkcs8 -topk8 -in {base} -v2 aes-256-cbc -iter "
                              "10000000 -passout pass:{pass} -out {out}"});
  const std::string text = readFile(path);
  EXPECT_EQ(importError(text), KeyImportError::passphraseRequired());
  EXPECT_EQ(testing::expectImportsAndSigns(
                path, std::string(kPassphrase),
                testing::opensslEd25519PublicKey(path, std::string(kPassphrase)))
                .key.algorithm(),
            KeyAlgorithm::ed25519);

  // 10000000 is 00 98 96 80 in DER; one more changes only the last byte.
  Bytes der = bodyOf(text);
  const Bytes limit = {0x02, 0x04, 0x00, 0x98, 0x96, 0x80};
  auto at = std::search(der.begin(), der.end(), limit.begin(), limit.end());
  ASSERT_NE(at, der.end());
  at[5] = 0x81;
  EXPECT_EQ(
      importError(testing::armor("ENCRYPTED PRIVATE KEY", der), std::string(kPassphrase)),
      KeyImportError::unsupportedFormat("PBKDF2 with 10000001 iterations (at most 10000000)"));
}

TEST(PEMImport, LegacyEncryptionHeaders) {
  const auto path =
      makeFile({kP256, "openssl ec -in {base} -aes128 -passout pass:{pass} -out {out}"});
  const std::string text = readFile(path);
  const std::string passphrase(kPassphrase);
  const size_t info = text.find("DEK-Info: AES-128-CBC,");
  ASSERT_NE(info, std::string::npos);
  auto withDEKInfo = [&](const std::string& value) {
    std::string changed = text;
    const size_t end = changed.find('\n', info);
    return changed.replace(info, end - info, value);
  };
  const std::string iv = text.substr(info + 22, 32);

  // The cipher name is compared in upper case.
  EXPECT_NO_THROW(KeyImporter::parse(withDEKInfo("DEK-Info: aes-128-cbc," + iv),
                                     testing::passphraseOf(passphrase)));
  EXPECT_EQ(importError(withDEKInfo("X-Other: 1"), passphrase), KeyImportError::malformed());
  EXPECT_EQ(importError(withDEKInfo("DEK-Info: AES-128-CBC," + iv.substr(2)), passphrase),
            KeyImportError::malformed());
  EXPECT_EQ(importError(withDEKInfo("DEK-Info: AES-128-CBC,zz" + iv.substr(2)), passphrase),
            KeyImportError::malformed());
  EXPECT_EQ(importError(withDEKInfo("DEK-Info: DES-CBC," + iv.substr(16)), passphrase),
            KeyImportError::unsupportedCipher("DES-CBC"));
}

}  // namespace
}  // namespace quorvane
