// PEM key files (PKCS#1, SEC1, PKCS#8, encrypted or not) made at test time by openssl, ssh-keygen
// and puttygen, and the files of those tools that are refused.
#include <gtest/gtest.h>

#include <sstream>

#include "ImportTestSupport.h"
#include "KeyImport/DERReader.h"
#include "KeyImport/RSAComponents.h"

namespace quorvane {
namespace {

using testing::importError;
using testing::readFile;

constexpr std::string_view kPassphrase = "pem-secret";

// Runs command lines given as text (split at spaces) in the key directory: "{base}" and "{out}"
// stand for two files there, "{pass}" for kPassphrase, "{empty}" for an empty argument.
// Returns {out}.
std::filesystem::path makeFile(const std::vector<std::string>& commands) {
  const auto base = testing::keyDirectory() / "base.pem";
  const auto out = testing::keyDirectory() / "out.pem";
  std::filesystem::remove(base);
  std::filesystem::remove(out);
  for (const std::string& command : commands) {
    std::istringstream words(command);
    std::vector<std::string> arguments;
    for (std::string word; words >> word;) {
      if (word == "{base}") word = base.string();
      if (word == "{out}") word = out.string();
      if (word == "{empty}") word.clear();
      if (size_t at = word.find("{pass}"); at != std::string::npos)
        word.replace(at, 6, kPassphrase);
      arguments.push_back(word);
    }
    testing::runTool(arguments);
  }
  return out;
}

const std::string kRSA = "openssl genpkey -quiet -algorithm RSA -pkeyopt rsa_keygen_bits:2048 -out {base}";
const std::string kP256 = "openssl genpkey -quiet -algorithm EC -pkeyopt ec_paramgen_curve:P-256 -out {base}";
const std::string kP384 = "openssl genpkey -quiet -algorithm EC -pkeyopt ec_paramgen_curve:P-384 -out {base}";
const std::string kEd25519 = "openssl genpkey -quiet -algorithm ED25519 -out {base}";

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
    {"RSAPKCS1", {kRSA, "openssl rsa -in {base} -traditional -out {out}"}, false,
     KeyAlgorithm::rsa, "RSA PRIVATE KEY"},
    {"P256SEC1", {"openssl ecparam -name prime256v1 -genkey -noout -out {out}"}, false,
     KeyAlgorithm::ecdsaP256, "EC PRIVATE KEY"},
    {"P384PKCS8", {kP384, "cp {base} {out}"}, false, KeyAlgorithm::ecdsaP384, "PRIVATE KEY"},
    {"P256ExplicitParameters",
     {"openssl ecparam -name prime256v1 -genkey -noout -param_enc explicit -out {out}"}, false,
     KeyAlgorithm::ecdsaP256, "EC PRIVATE KEY"},
    {"P384ExplicitCompressed",
     {kP384, "openssl ec -in {base} -param_enc explicit -conv_form compressed -out {out}"}, false,
     KeyAlgorithm::ecdsaP384, "EC PRIVATE KEY"},
    {"P256ExplicitInPKCS8",
     {kP256, "openssl pkey -in {base} -ec_param_enc explicit -out {out}"}, false,
     KeyAlgorithm::ecdsaP256, "PRIVATE KEY"},
    {"Ed25519PKCS8", {kEd25519, "cp {base} {out}"}, false, KeyAlgorithm::ed25519, "PRIVATE KEY"},
    // PBES2 with PBKDF2: each cipher, each pseudorandom function.
    {"PBES2AES128SHA256",
     {kEd25519, "openssl pkcs8 -topk8 -in {base} -v2 aes-128-cbc -v2prf hmacWithSHA256 -passout "
                "pass:{pass} -out {out}"},
     true, KeyAlgorithm::ed25519, "ENCRYPTED PRIVATE KEY"},
    {"PBES2AES192SHA1",
     {kP384, "openssl pkcs8 -topk8 -in {base} -v2 aes-192-cbc -v2prf hmacWithSHA1 -passout "
             "pass:{pass} -out {out}"},
     true, KeyAlgorithm::ecdsaP384, "ENCRYPTED PRIVATE KEY"},
    {"PBES2AES256SHA512",
     {kRSA, "openssl pkcs8 -topk8 -in {base} -v2 aes-256-cbc -v2prf hmacWithSHA512 -passout "
            "pass:{pass} -out {out}"},
     true, KeyAlgorithm::rsa, "ENCRYPTED PRIVATE KEY"},
    {"PBES2TripleDESSHA256",
     {kP256, "openssl pkcs8 -topk8 -in {base} -v2 des3 -v2prf hmacWithSHA256 -passout "
             "pass:{pass} -out {out}"},
     true, KeyAlgorithm::ecdsaP256, "ENCRYPTED PRIVATE KEY"},
    {"PBES2OpenSSLDefault", {kP256, "openssl pkey -in {base} -aes256 -passout pass:{pass} -out {out}"},
     true, KeyAlgorithm::ecdsaP256, "ENCRYPTED PRIVATE KEY"},
    // OpenSSL's traditional encryption, each DEK-Info cipher.
    {"LegacyAES128",
     {kRSA, "openssl rsa -in {base} -traditional -aes128 -passout pass:{pass} -out {out}"}, true,
     KeyAlgorithm::rsa, "RSA PRIVATE KEY"},
    {"LegacyAES192", {kP256, "openssl ec -in {base} -aes192 -passout pass:{pass} -out {out}"},
     true, KeyAlgorithm::ecdsaP256, "EC PRIVATE KEY"},
    {"LegacyAES256", {kP384, "openssl ec -in {base} -aes256 -passout pass:{pass} -out {out}"},
     true, KeyAlgorithm::ecdsaP384, "EC PRIVATE KEY"},
    {"LegacyTripleDES",
     {kRSA, "openssl rsa -in {base} -traditional -des3 -passout pass:{pass} -out {out}"}, true,
     KeyAlgorithm::rsa, "RSA PRIVATE KEY"},
    // ssh-keygen's PEM exports.
    {"SSHKeygenPEM",
     {"ssh-keygen -q -t rsa -b 2048 -N {pass} -m PEM -f {out}"}, true, KeyAlgorithm::rsa,
     "RSA PRIVATE KEY"},
    {"SSHKeygenPKCS8",
     {"ssh-keygen -q -t ecdsa -b 384 -N {pass} -m PKCS8 -f {out}"}, true,
     KeyAlgorithm::ecdsaP384, "ENCRYPTED PRIVATE KEY"},
    {"SSHKeygenPlainPKCS8", {"ssh-keygen -q -t rsa -b 2048 -N {empty} -m PKCS8 -f {out}"}, false,
     KeyAlgorithm::rsa, "PRIVATE KEY"},
    // PuTTY's OpenSSH exports.
    {"PuTTYOpenSSHExport",
     {"puttygen -q -t ed25519 -O private-openssh-new --new-passphrase /dev/null -o {out}"}, false, KeyAlgorithm::ed25519,
     "OPENSSH PRIVATE KEY"},
    {"PuTTYPEMExport", {"puttygen -q -t ecdsa -b 256 -O private-openssh --new-passphrase /dev/null -o {out}"}, false,
     KeyAlgorithm::ecdsaP256, "EC PRIVATE KEY"},
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

}  // namespace
}  // namespace quorvane
