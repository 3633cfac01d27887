// PEM key files (PKCS#1, SEC1, PKCS#8, encrypted or not) made at test time by openssl, ssh-keygen
// and puttygen, and the files of those tools that are refused.
#include <gtest/gtest.h>

#include <sstream>

#include "ImportTestSupport.h"
#include "KeyImport/DERReader.h"
#include "KeyImport/RSAComponents.h"
#include "PEMTestSupport.h"

namespace quorvane {
namespace {

using testing::importError;
using testing::readFile;

using namespace testing::pem;

struct ImportCase {
  const char* name;
  std::vector<std::string> commands;
  bool encrypted;
  KeyAlgorithm algorithm;
  const char* label;  // the PEM label the tool wrote
};

std::ostream& operator<<(std::ostream& out, const ImportCase& c) { return out << c.name; }

const ImportCase kImportCases[] = {
    {"RSAPKCS8", {kRSA, "cp {base} {out}"}, false, KeyAlgorithm::rsa, "PRIVATE KEY"},
    {"RSAPKCS1",
     {kRSA, "openssl rsa -in {base} -traditional -out {out}"},
     false,
     KeyAlgorithm::rsa,
     "RSA PRIVATE KEY"},
    {"P256SEC1",
     {"openssl ecparam -name prime256v1 -genkey -noout -out {out}"},
     false,
     KeyAlgorithm::ecdsaP256,
     "EC PRIVATE KEY"},
    {"P384PKCS8", {kP384, "cp {base} {out}"}, false, KeyAlgorithm::ecdsaP384, "PRIVATE KEY"},
    {"P256ExplicitParameters",
     {"openssl ecparam -name prime256v1 -genkey -noout -param_enc explicit -out {out}"},
     false,
     KeyAlgorithm::ecdsaP256,
     "EC PRIVATE KEY"},
    {"P384ExplicitCompressed",
     {kP384, "openssl ec -in {base} -param_enc explicit -conv_form compressed -out {out}"},
     false,
     KeyAlgorithm::ecdsaP384,
     "EC PRIVATE KEY"},
    {"P256ExplicitInPKCS8",
     {kP256, "openssl pkey -in {base} -ec_param_enc explicit -out {out}"},
     false,
     KeyAlgorithm::ecdsaP256,
     "PRIVATE KEY"},
    {"Ed25519PKCS8", {kEd25519, "cp {base} {out}"}, false, KeyAlgorithm::ed25519, "PRIVATE KEY"},
    // PBES2 with PBKDF2: each cipher, each pseudorandom function.
    {"PBES2AES128SHA256",
     {kEd25519,
      "openssl pkcs8 -topk8 -in {base} -v2 aes-128-cbc -v2prf hmacWithSHA256 -passout "
      "pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::ed25519,
     "ENCRYPTED PRIVATE KEY"},
    {"PBES2AES192SHA1",
     {kP384,
      "openssl pkcs8 -topk8 -in {base} -v2 aes-192-cbc -v2prf hmacWithSHA1 -passout "
      "pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::ecdsaP384,
     "ENCRYPTED PRIVATE KEY"},
    {"PBES2AES256SHA512",
     {kRSA,
      "openssl pkcs8 -topk8 -in {base} -v2 aes-256-cbc -v2prf hmacWithSHA512 -passout "
      "pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::rsa,
     "ENCRYPTED PRIVATE KEY"},
    {"PBES2TripleDESSHA256",
     {kP256,
      "openssl pkcs8 -topk8 -in {base} -v2 des3 -v2prf hmacWithSHA256 -passout "
      "pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::ecdsaP256,
     "ENCRYPTED PRIVATE KEY"},
    {"PBES2OpenSSLDefault",
     {kP256, "openssl pkey -in {base} -aes256 -passout pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::ecdsaP256,
     "ENCRYPTED PRIVATE KEY"},
    // OpenSSL's traditional encryption, each DEK-Info cipher.
    {"LegacyAES128",
     {kRSA, "openssl rsa -in {base} -traditional -aes128 -passout pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::rsa,
     "RSA PRIVATE KEY"},
    {"LegacyAES192",
     {kP256, "openssl ec -in {base} -aes192 -passout pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::ecdsaP256,
     "EC PRIVATE KEY"},
    {"LegacyAES256",
     {kP384, "openssl ec -in {base} -aes256 -passout pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::ecdsaP384,
     "EC PRIVATE KEY"},
    {"LegacyTripleDES",
     {kRSA, "openssl rsa -in {base} -traditional -des3 -passout pass:{pass} -out {out}"},
     true,
     KeyAlgorithm::rsa,
     "RSA PRIVATE KEY"},
    // ssh-keygen's PEM exports.
    {"SSHKeygenPEM",
     {"ssh-keygen -q -t rsa -b 2048 -N {pass} -m PEM -f {out}"},
     true,
     KeyAlgorithm::rsa,
     "RSA PRIVATE KEY"},
    {"SSHKeygenPKCS8",
     {"ssh-keygen -q -t ecdsa -b 384 -N {pass} -m PKCS8 -f {out}"},
     true,
     KeyAlgorithm::ecdsaP384,
     "ENCRYPTED PRIVATE KEY"},
    {"SSHKeygenPlainPKCS8",
     {"ssh-keygen -q -t rsa -b 2048 -N {empty} -m PKCS8 -f {out}"},
     false,
     KeyAlgorithm::rsa,
     "PRIVATE KEY"},
    // PuTTY's OpenSSH exports.
    {"PuTTYOpenSSHExport",
     {"puttygen -q -t ed25519 -O private-openssh-new --new-passphrase /dev/null -o {out}"},
     false,
     KeyAlgorithm::ed25519,
     "OPENSSH PRIVATE KEY"},
    {"PuTTYPEMExport",
     {"puttygen -q -t ecdsa -b 256 -O private-openssh --new-passphrase /dev/null -o {out}"},
     false,
     KeyAlgorithm::ecdsaP256,
     "EC PRIVATE KEY"},
};

class ImportsPEMKey : public ::testing::TestWithParam<ImportCase> {};

TEST_P(ImportsPEMKey, WithTheRightPassphraseOnly) {
  const ImportCase& c = GetParam();
  const auto path = makeFile(c.commands);
  const std::string passphrase = c.encrypted ? std::string(kPassphrase) : "";
  const std::string text = readFile(path);
  EXPECT_TRUE(text.starts_with("-----BEGIN " + std::string(c.label) + "-----")) << text;

  const ParsedPrivateKey parsed =
      c.algorithm == KeyAlgorithm::ed25519 && std::string(c.label) != "OPENSSH PRIVATE KEY"
          ? testing::expectImportsAndSigns(path, passphrase,
                                           testing::opensslEd25519PublicKey(path, passphrase))
          : testing::expectImportsAndSigns(path, passphrase);
  EXPECT_EQ(parsed.key.algorithm(), c.algorithm);
  if (c.encrypted) {
    EXPECT_EQ(importError(text, passphrase + "x"), KeyImportError::wrongPassphrase());
    EXPECT_EQ(importError(text, ""), KeyImportError::passphraseRequired());
  }
}

INSTANTIATE_TEST_SUITE_P(Tools, ImportsPEMKey, ::testing::ValuesIn(kImportCases),
                         testing::caseName<ImportCase>);

struct RefusedCase {
  const char* name;
  std::vector<std::string> commands;
  bool withPassphrase;
  KeyImportError expected;
};

std::ostream& operator<<(std::ostream& out, const RefusedCase& c) { return out << c.name; }

const std::string kDSAParameters =
    "openssl genpkey -quiet -genparam -algorithm DSA -pkeyopt dsa_paramgen_bits:1024 -out {base}";
const std::string kThreePrimes =
    "openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -pkeyopt "
    "rsa_keygen_primes:3 -out {base}";

const RefusedCase kRefusedCases[] = {
    {"PBES1MD5DES",
     {kP256,
      "openssl pkcs8 -topk8 -provider legacy -provider default -in {base} -v1 PBE-MD5-DES "
      "-passout pass:{pass} -out {out}"},
     true,
     KeyImportError::unsupportedCipher("PKCS#8 encryption other than PBES2")},
    {"PKCS12SHA1TripleDES",
     {kP256, "openssl pkcs8 -topk8 -in {base} -v1 PBE-SHA1-3DES -passout pass:{pass} -out {out}"},
     true,
     KeyImportError::unsupportedCipher("PKCS#8 encryption other than PBES2")},
    {"Scrypt",
     {kP256, "openssl pkcs8 -topk8 -in {base} -scrypt -passout pass:{pass} -out {out}"},
     true,
     KeyImportError::unsupportedCipher("PBES2 key derivation other than PBKDF2")},
    {"PBKDF2SHA384",
     {kP256,
      "openssl pkcs8 -topk8 -in {base} -v2 aes-128-cbc -v2prf hmacWithSHA384 -passout "
      "pass:{pass} -out {out}"},
     true,
     KeyImportError::unsupportedCipher("PBKDF2 with an unknown hash")},
    {"PBES2Camellia",
     {kP256,
      "openssl pkcs8 -topk8 -in {base} -v2 camellia-128-cbc -passout pass:{pass} -out "
      "{out}"},
     true,
     KeyImportError::unsupportedCipher("PKCS#8 with an unknown cipher")},
    {"LegacyCamellia",
     {kP256, "openssl ec -in {base} -camellia128 -passout pass:{pass} -out {out}"},
     true,
     KeyImportError::unsupportedCipher("CAMELLIA-128-CBC")},
    {"P521SEC1",
     {"openssl ecparam -name secp521r1 -genkey -noout -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("ecdsa-sha2-nistp521")},
    {"P521PKCS8",
     {"openssl genpkey -quiet -algorithm EC -pkeyopt ec_paramgen_curve:P-521 -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("ecdsa-sha2-nistp521")},
    {"Secp256k1",
     {"openssl ecparam -name secp256k1 -genkey -noout -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("unknown elliptic curve")},
    {"Secp256k1Explicit",
     {"openssl ecparam -name secp256k1 -genkey -noout -param_enc explicit -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("unknown elliptic curve")},
    {"BinaryFieldExplicit",
     {"openssl ecparam -name sect233k1 -genkey -noout -param_enc explicit -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("elliptic curve over a binary field")},
    {"BinaryFieldNamed",
     {"openssl ecparam -name sect233k1 -genkey -noout -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("unknown elliptic curve")},
    {"DSAPKCS8",
     {kDSAParameters, "openssl genpkey -quiet -paramfile {base} -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("PKCS#8 algorithm 1.2.840.10040.4.1")},
    {"DSATraditional",
     {kDSAParameters, "openssl genpkey -quiet -paramfile {base} -out {out}", "cp {out} {base}",
      "openssl pkey -in {base} -traditional -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("ssh-dss")},
    {"Ed448",
     {"openssl genpkey -quiet -algorithm ED448 -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("PKCS#8 algorithm 1.3.101.113")},
    {"RSAPSS",
     {"openssl genpkey -quiet -algorithm RSA-PSS -pkeyopt rsa_keygen_bits:2048 -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("PKCS#8 algorithm 1.2.840.113549.1.1.10")},
    {"ThreePrimesPKCS8",
     {kThreePrimes, "cp {base} {out}"},
     false,
     KeyImportError::unsupportedKeyType("RSA with more than two primes")},
    {"ThreePrimesTraditional",
     {kThreePrimes, "openssl rsa -in {base} -traditional -out {out}"},
     false,
     KeyImportError::unsupportedKeyType("RSA with more than two primes")},
    {"RSA1024",
     {"openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:1024 -out {out}"},
     false,
     KeyImportError::rsaKeyTooSmall(1024)},
    {"OpenSSLPublicKey",
     {kP256, "openssl pkey -in {base} -pubout -out {out}"},
     false,
     KeyImportError::publicKeyOnly()},
    {"OpenSSLRSAPublicKey",
     {kRSA, "openssl rsa -in {base} -RSAPublicKey_out -out {out}"},
     false,
     KeyImportError::publicKeyOnly()},
    {"X509Certificate",
     {kP256, "openssl req -new -x509 -key {base} -subj /CN=quorvane -days 1 -out {out}"},
     false,
     KeyImportError::unsupportedFormat("CERTIFICATE")},
    {"SSHPublicKey",
     {"ssh-keygen -q -t ed25519 -N {empty} -f {base}", "cp {base}.pub {out}"},
     false,
     KeyImportError::publicKeyOnly()},
    {"SSHCertificate",
     {"ssh-keygen -q -t ed25519 -N {empty} -f {base}",
      "ssh-keygen -q -s {base} -I quorvane {base}.pub", "cp {base}-cert.pub {out}"},
     false,
     KeyImportError::publicKeyOnly()},
    {"PuTTYKey",
     {"puttygen -q -t ed25519 --new-passphrase /dev/null -o {out}"},
     false,
     KeyImportError::unsupportedFormat("PuTTY")},
    {"PuTTYEncryptedKey",
     {"puttygen -q -t ecdsa -b 256 --new-passphrase {passfile} -o {out}"},
     true,
     KeyImportError::unsupportedFormat("PuTTY")},
    {"PuTTYPublicKey",
     {"puttygen -q -t ed25519 --new-passphrase /dev/null -o {base}",
      "puttygen {base} -O public -o {out}"},
     false,
     KeyImportError::publicKeyOnly()},
    {"SSHCOMKey",
     {"puttygen -q -t rsa -b 2048 --new-passphrase /dev/null -O private-sshcom -o {out}"},
     false,
     KeyImportError::unsupportedFormat("SSH.COM")},
    {"Junk",
     {"openssl rand -base64 -out {out} 300"},
     false,
     KeyImportError::unsupportedFormat("unknown")},
    {"BinaryJunk", {"openssl rand -out {out} 300"}, false, KeyImportError::malformed()},
};

class RefusesFile : public ::testing::TestWithParam<RefusedCase> {};

TEST_P(RefusesFile, WithItsError) {
  const RefusedCase& c = GetParam();
  const auto path = makeFile(c.commands);
  EXPECT_EQ(importError(readFile(path), c.withPassphrase ? std::string(kPassphrase) : ""),
            c.expected);
}

INSTANTIATE_TEST_SUITE_P(Tools, RefusesFile, ::testing::ValuesIn(kRefusedCases),
                         testing::caseName<RefusedCase>);

}  // namespace
}  // namespace quorvane
