// Known-answer tests of the key derivations that private key files use, from published vectors in
// tests/data and from openssl run at test time.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "Base/Hex.h"
#include "Crypto/BcryptPBKDF.h"
#include "Crypto/Blowfish.h"
#include "Crypto/LegacyKeyDerivation.h"
#include "Crypto/PBKDF2.h"
#include "support/TestSupport.h"

namespace quorvane::crypto {
namespace {

using nlohmann::json;
using testing::hex;

json loadVectors(const std::string& name) {
  return json::parse(testing::readFile(testing::testDataPath(name)));
}

std::vector<json> entries(const json& array) { return {array.begin(), array.end()}; }

std::string describe(const ::testing::TestParamInfo<json>& info) {
  return "case" + std::to_string(info.index);
}

// Eric Young's ECB rows (the key sizes of the original cipher), the set_key rows (keys of 1 to 24
// bytes, cycled over the P-array) and the 448-bit key.
std::vector<json> blowfishVectors() {
  const json all = loadVectors("bcrypt/blowfish_eric_young.json");
  std::vector<json> cases = entries(all["ecb"]);
  for (const json& entry : all["set_key"]) cases.push_back(entry);
  for (const json& entry : all["long_key"]) cases.push_back(entry);
  return cases;
}

class BlowfishKnownAnswer : public ::testing::TestWithParam<json> {};

TEST_P(BlowfishKnownAnswer, EncryptsAndDecrypts) {
  Blowfish cipher;
  cipher.setKey(hex(GetParam()["key"].get<std::string>()));
  Bytes block = hex(GetParam()["plain"].get<std::string>());
  cipher.encryptBlock(block.data());
  EXPECT_EQ(block, hex(GetParam()["cipher"].get<std::string>()));
  cipher.decryptBlock(block.data());
  EXPECT_EQ(block, hex(GetParam()["plain"].get<std::string>()));
}

INSTANTIATE_TEST_SUITE_P(EricYoung, BlowfishKnownAnswer, ::testing::ValuesIn(blowfishVectors()),
                         describe);

// The OpenBSD and pyca vectors, plus the key and IV of OpenSSH's own encrypted test keys.
std::vector<json> bcryptVectors() {
  std::vector<json> cases = entries(loadVectors("bcrypt/bcrypt_pbkdf_openbsd.json"));
  for (const json& fixture : loadVectors("openssh/openssh_bcrypt_fixtures.json")) {
    cases.push_back({{"rounds", fixture["rounds"]},
                     {"password", hexEncode(bytesOf(fixture["passphrase"].get<std::string>()))},
                     {"salt", fixture["salt"]},
                     {"key_length", fixture["bcrypt_pbkdf_output_length"]},
                     {"key", fixture["derived_key"].get<std::string>() +
                                 fixture["derived_iv"].get<std::string>()}});
  }
  return cases;
}

class BcryptPBKDFKnownAnswer : public ::testing::TestWithParam<json> {};

TEST_P(BcryptPBKDFKnownAnswer, DerivesTheKey) {
  const json& v = GetParam();
  auto key = bcryptPBKDF(hex(v["password"].get<std::string>()), hex(v["salt"].get<std::string>()),
                         v["rounds"].get<uint32_t>(), v["key_length"].get<size_t>());
  ASSERT_TRUE(key);
  EXPECT_EQ(hexEncode(key->view()), v["key"].get<std::string>());
}

INSTANTIATE_TEST_SUITE_P(Published, BcryptPBKDFKnownAnswer, ::testing::ValuesIn(bcryptVectors()),
                         describe);

TEST(BcryptPBKDF, RefusesArgumentsOutOfRange) {
  const Bytes password = bytesOf("password"), salt = bytesOf("salt");
  EXPECT_FALSE(bcryptPBKDF(password, salt, 0, 32));
  EXPECT_FALSE(bcryptPBKDF({}, salt, 1, 32));
  EXPECT_FALSE(bcryptPBKDF(password, {}, 1, 32));
  EXPECT_FALSE(bcryptPBKDF(password, Bytes(kBcryptPBKDFMaximumSalt + 1, 1), 1, 32));
  EXPECT_FALSE(bcryptPBKDF(password, salt, 1, 0));
  EXPECT_FALSE(bcryptPBKDF(password, salt, 1, kBcryptPBKDFMaximumOutput + 1));
  EXPECT_TRUE(bcryptPBKDF(password, Bytes(kBcryptPBKDFMaximumSalt, 1), 1, 1));
  EXPECT_TRUE(bcryptPBKDF(password, salt, 1, kBcryptPBKDFMaximumOutput));
}

struct PBKDF2Vector {
  HashAlgorithm hash;
  const char* password;
  const char* salt;
  uint32_t iterations;
  const char* key;
};

// RFC 6070 (HMAC-SHA1) and RFC 7914 section 11 (HMAC-SHA256).
const PBKDF2Vector kPBKDF2Vectors[] = {
    {HashAlgorithm::sha1, "password", "salt", 1, "0c60c80f961f0e71f3a9b524af6012062fe037a6"},
    {HashAlgorithm::sha1, "password", "salt", 4096, "4b007901b765489abead49d926f721d065a429c1"},
    {HashAlgorithm::sha1, "passwordPASSWORDpassword", "saltSALTsaltSALTsaltSALTsaltSALTsalt", 4096,
     "3d2eec4fe41c849b80c8d83662c0e44a8b291a964cf2f07038"},
    {HashAlgorithm::sha256, "passwd", "salt", 1,
     "55ac046e56e3089fec1691c22544b605f94185216dde0465e68b9d57c20dacbc"
     "49ca9cccf179b645991664b39d77ef317c71b845b1e30bd509112041d3a19783"},
};

class PBKDF2KnownAnswer : public ::testing::TestWithParam<PBKDF2Vector> {};

TEST_P(PBKDF2KnownAnswer, DerivesTheKey) {
  const PBKDF2Vector& v = GetParam();
  const size_t length = std::string_view(v.key).size() / 2;
  EXPECT_EQ(
      hexEncode(pbkdf2(v.hash, bytesOf(v.password), bytesOf(v.salt), v.iterations, length).view()),
      v.key);
}

INSTANTIATE_TEST_SUITE_P(RFCs, PBKDF2KnownAnswer, ::testing::ValuesIn(kPBKDF2Vectors));

// HMAC-SHA512 has no RFC vector; openssl's own PBKDF2 is the reference.
TEST(PBKDF2, MatchesOpenSSLWithSHA512) {
  auto result = testing::runCommand({"openssl", "kdf", "-keylen", "40", "-kdfopt", "digest:SHA512",
                                     "-kdfopt", "pass:pass phrase", "-kdfopt", "salt:NaCl",
                                     "-kdfopt", "iter:1000", "PBKDF2"});
  ASSERT_EQ(result.exitCode, 0);
  std::string expected;
  for (char c : result.output)
    if (std::isxdigit(static_cast<unsigned char>(c))) expected.push_back(std::tolower(c));
  EXPECT_EQ(
      hexEncode(
          pbkdf2(HashAlgorithm::sha512, bytesOf("pass phrase"), bytesOf("NaCl"), 1000, 40).view()),
      expected);
}

// `openssl enc -P` prints the key and IV that its MD5 derivation gives; the IV continues the key
// stream, so 48 derived bytes are key || IV for AES-256.
TEST(LegacyPEMKey, MatchesOpenSSLEnc) {
  for (const char* password : {"secret", "a much longer pass phrase than one MD5 block"}) {
    auto result =
        testing::runCommand({"openssl", "enc", "-aes-256-cbc", "-md", "md5", "-P", "-S",
                             "0102030405060708", "-pass", std::string("pass:") + password});
    ASSERT_EQ(result.exitCode, 0);
    auto field = [&](const std::string& name) {
      // Lines read "key=HEX" and "iv =HEX".
      size_t start = result.output.find("\n" + name);
      EXPECT_NE(start, std::string::npos) << result.output;
      start = result.output.find('=', start) + 1;
      std::string value = result.output.substr(start, result.output.find('\n', start) - start);
      for (char& c : value) c = static_cast<char>(std::tolower(c));
      return value;
    };
    const SecureBytes derived = legacyPEMKey(bytesOf(password), hex("0102030405060708"), 48);
    EXPECT_EQ(hexEncode(derived.view()), field("key") + field("iv")) << password;
  }
}

}  // namespace
}  // namespace quorvane::crypto
