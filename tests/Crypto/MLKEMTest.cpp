#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <optional>
#include <string>
#include <vector>

#include "Crypto/MLKEM768.h"
#include "Crypto/SHA3.h"
#include "support/VectorFile.h"

namespace quorvane::crypto {
namespace {

using nlohmann::json;
using testing::hexField;
using testing::loadVectorFile;

Bytes bytesOf(const SecureBytes& secret) {
  return Bytes(secret.view().begin(), secret.view().end());
}

template <typename Case>
std::string caseName(const ::testing::TestParamInfo<Case>& info) {
  return info.param.name;
}

const json& acvpGroup(const json& file, int groupID) {
  for (const json& group : file.at("testGroups"))
    if (group.at("tgId") == groupID) return group;
  throw std::runtime_error("no ACVP group " + std::to_string(groupID));
}

// ---- Key generation from the seed d || z.

struct KeyGenCase {
  std::string name;
  Bytes seed, ek, dk;
};

std::vector<KeyGenCase> keyGenCases() {
  std::vector<KeyGenCase> cases;
  const json acvp = loadVectorFile("mlkem/mlkem768_acvp_keygen.json");
  for (const json& test : acvpGroup(acvp, 2).at("tests")) {
    Bytes seed = hexField(test, "d");
    Bytes z = hexField(test, "z");
    seed.insert(seed.end(), z.begin(), z.end());
    cases.push_back({"acvp_tc" + std::to_string(test.at("tcId").get<int>()), seed,
                     hexField(test, "ek"), hexField(test, "dk")});
  }
  return cases;
}

class MLKEMKeyGen : public ::testing::TestWithParam<KeyGenCase> {};

TEST_P(MLKEMKeyGen, DerivesBothKeysFromTheSeed) {
  std::optional<MLKEM768KeyPair> pair = mlkem768KeyPairFromSeed(GetParam().seed);
  ASSERT_TRUE(pair);
  EXPECT_EQ(pair->encapsulationKey, GetParam().ek);
  EXPECT_EQ(bytesOf(pair->decapsulationKey), GetParam().dk);
}

INSTANTIATE_TEST_SUITE_P(Vectors, MLKEMKeyGen, ::testing::ValuesIn(keyGenCases()),
                         caseName<KeyGenCase>);

// ---- Encapsulation with a given m; no expected ciphertext means the key must be refused.

struct EncapsCase {
  std::string name;
  Bytes ek, m;
  std::optional<Bytes> c, k;
};

std::vector<EncapsCase> encapsCases() {
  std::vector<EncapsCase> cases;
  const json acvp = loadVectorFile("mlkem/mlkem768_acvp_encapdecap.json");
  for (const json& test : acvpGroup(acvp, 2).at("tests"))
    cases.push_back({"acvp_tc" + std::to_string(test.at("tcId").get<int>()), hexField(test, "ek"),
                     hexField(test, "m"), hexField(test, "c"), hexField(test, "k")});
  const json wycheproof = loadVectorFile("mlkem/mlkem768_wycheproof_encaps.json");
  for (const json& group : wycheproof.at("testGroups")) {
    for (const json& test : group.at("tests")) {
      const bool valid = test.at("result") == "valid";
      cases.push_back({"wycheproof_tc" + std::to_string(test.at("tcId").get<int>()),
                       hexField(test, "ek"), hexField(test, "m"),
                       valid ? std::optional(hexField(test, "c")) : std::nullopt,
                       valid ? std::optional(hexField(test, "K")) : std::nullopt});
    }
  }
  const json unlucky = loadVectorFile("mlkem/mlkem768_cctv_unlucky_encaps.json").at(0);
  cases.push_back({"cctv_unlucky", hexField(unlucky, "ek"), hexField(unlucky, "m"),
                   hexField(unlucky, "c"), hexField(unlucky, "K")});
  return cases;
}

class MLKEMEncapsulation : public ::testing::TestWithParam<EncapsCase> {};

TEST_P(MLKEMEncapsulation, GivesCiphertextAndSecretOrRefusesTheKey) {
  const EncapsCase& c = GetParam();
  std::optional<MLKEM768Encapsulation> result = mlkem768EncapsulateDerand(c.ek, c.m);
  EXPECT_EQ(mlkem768CheckEncapsulationKey(c.ek), c.c.has_value());
  if (!c.c) {
    EXPECT_FALSE(result);
    return;
  }
  ASSERT_TRUE(result);
  EXPECT_EQ(result->ciphertext, *c.c);
  EXPECT_EQ(bytesOf(result->sharedSecret), *c.k);
}

INSTANTIATE_TEST_SUITE_P(Vectors, MLKEMEncapsulation, ::testing::ValuesIn(encapsCases()),
                         caseName<EncapsCase>);

// ---- Decapsulation with an expanded key, or with the key made from a seed (whose encapsulation
// key is then checked too). No expected secret means the input must be refused.

struct DecapsCase {
  std::string name;
  Bytes dk;
  std::optional<Bytes> seed;
  Bytes ekOfSeed;
  Bytes c;
  std::optional<Bytes> k;
};

std::vector<DecapsCase> decapsCases() {
  std::vector<DecapsCase> cases;
  const json acvp = loadVectorFile("mlkem/mlkem768_acvp_encapdecap.json");
  for (const json& test : acvpGroup(acvp, 5).at("tests"))
    cases.push_back({"acvp_tc" + std::to_string(test.at("tcId").get<int>()),
                     hexField(test, "dk"),
                     std::nullopt,
                     {},
                     hexField(test, "c"),
                     hexField(test, "k")});
  const json wycheproof = loadVectorFile("mlkem/mlkem768_wycheproof_seed_decaps.json");
  for (const json& group : wycheproof.at("testGroups")) {
    for (const json& test : group.at("tests")) {
      const bool valid = test.at("result") == "valid";
      cases.push_back({"wycheproof_tc" + std::to_string(test.at("tcId").get<int>()),
                       {},
                       hexField(test, "seed"),
                       test.contains("ek") ? hexField(test, "ek") : Bytes{},
                       hexField(test, "c"),
                       valid ? std::optional(hexField(test, "K")) : std::nullopt});
    }
  }
  const json unlucky = loadVectorFile("mlkem/mlkem768_cctv_unlucky_encaps.json").at(0);
  cases.push_back({"cctv_unlucky",
                   hexField(unlucky, "dk"),
                   std::nullopt,
                   {},
                   hexField(unlucky, "c"),
                   hexField(unlucky, "K")});
  return cases;
}

class MLKEMDecapsulation : public ::testing::TestWithParam<DecapsCase> {};

TEST_P(MLKEMDecapsulation, GivesTheSecretOrRefuses) {
  const DecapsCase& c = GetParam();
  Bytes dk = c.dk;
  if (c.seed) {
    std::optional<MLKEM768KeyPair> pair = mlkem768KeyPairFromSeed(*c.seed);
    if (c.ekOfSeed.empty()) {  // a seed of the wrong length
      EXPECT_FALSE(pair);
      EXPECT_FALSE(c.k);
      return;
    }
    ASSERT_TRUE(pair);
    EXPECT_EQ(pair->encapsulationKey, c.ekOfSeed);
    dk = bytesOf(pair->decapsulationKey);
  }
  std::optional<SecureBytes> k = mlkem768Decapsulate(dk, c.c);
  EXPECT_EQ(k ? std::optional(bytesOf(*k)) : std::nullopt, c.k);
}

INSTANTIATE_TEST_SUITE_P(Vectors, MLKEMDecapsulation, ::testing::ValuesIn(decapsCases()),
                         caseName<DecapsCase>);

// ---- The input checks on their own.

struct KeyCheckCase {
  std::string name;
  Bytes key;
  bool isEncapsulationKey;
  bool passes;
};

std::vector<KeyCheckCase> keyCheckCases() {
  std::vector<KeyCheckCase> cases;
  const json acvp = loadVectorFile("mlkem/mlkem768_acvp_encapdecap.json");
  for (int groupID : {9, 10}) {
    for (const json& test : acvpGroup(acvp, groupID).at("tests")) {
      const bool isEK = groupID == 10;
      cases.push_back({"acvp_tc" + std::to_string(test.at("tcId").get<int>()),
                       hexField(test, isEK ? "ek" : "dk"), isEK,
                       test.at("testPassed").get<bool>()});
    }
  }
  return cases;
}

class MLKEMInputCheck : public ::testing::TestWithParam<KeyCheckCase> {};

TEST_P(MLKEMInputCheck, AcceptsExactlyTheValidKeys) {
  const KeyCheckCase& c = GetParam();
  if (c.isEncapsulationKey) {
    EXPECT_EQ(mlkem768CheckEncapsulationKey(c.key), c.passes);
    EXPECT_EQ(mlkem768Encapsulate(c.key).has_value(), c.passes);
  } else {
    EXPECT_EQ(mlkem768CheckDecapsulationKey(c.key), c.passes);
    EXPECT_EQ(mlkem768Decapsulate(c.key, Bytes(kMLKEM768CiphertextSize)).has_value(), c.passes);
  }
}

INSTANTIATE_TEST_SUITE_P(Vectors, MLKEMInputCheck, ::testing::ValuesIn(keyCheckCases()),
                         caseName<KeyCheckCase>);

// ---- The accumulated test: n rounds of key generation, encapsulation and decapsulation of a
// valid and a random ciphertext, inputs drawn from SHAKE128("") and outputs hashed into a second
// SHAKE128.

class MLKEMAccumulated : public ::testing::TestWithParam<int> {};

TEST_P(MLKEMAccumulated, MatchesTheDigest) {
  const int rounds = GetParam();
  std::optional<Bytes> expected;
  const json file = loadVectorFile("mlkem/mlkem768_accumulated.json");
  for (const json& each : file.at("cases"))
    if (each.at("n") == rounds) expected = hexField(each, "digest");
  ASSERT_TRUE(expected);

  constexpr size_t kRoundInput = kMLKEMSeedSize + kMLKEMMessageSize + kMLKEM768CiphertextSize;
  Bytes source(kRoundInput * static_cast<size_t>(rounds));
  sha3(SHA3Function::shake128, {}, source);
  std::unique_ptr<EVP_MD_CTX, decltype(&EVP_MD_CTX_free)> sink(EVP_MD_CTX_new(), EVP_MD_CTX_free);
  ASSERT_EQ(EVP_DigestInit_ex(sink.get(), EVP_shake128(), nullptr), 1);
  auto absorb = [&](ByteView bytes) { EVP_DigestUpdate(sink.get(), bytes.data(), bytes.size()); };

  for (int round = 0; round < rounds; ++round) {
    const ByteView input =
        ByteView(source).subspan(kRoundInput * static_cast<size_t>(round), kRoundInput);
    MLKEM768KeyPair pair = *mlkem768KeyPairFromSeed(input.first(kMLKEMSeedSize));
    absorb(pair.encapsulationKey);
    MLKEM768Encapsulation encapsulation = *mlkem768EncapsulateDerand(
        pair.encapsulationKey, input.subspan(kMLKEMSeedSize, kMLKEMMessageSize));
    absorb(encapsulation.ciphertext);
    absorb(encapsulation.sharedSecret.view());
    ASSERT_EQ(*mlkem768Decapsulate(pair.decapsulationKey.view(), encapsulation.ciphertext),
              encapsulation.sharedSecret);
    absorb(mlkem768Decapsulate(pair.decapsulationKey.view(),
                               input.subspan(kMLKEMSeedSize + kMLKEMMessageSize))
               ->view());
  }
  Bytes digest(32);
  ASSERT_EQ(EVP_DigestFinalXOF(sink.get(), digest.data(), digest.size()), 1);
  EXPECT_EQ(digest, *expected);
}

// 10000 rounds take seconds in an optimised build but minutes in an instrumented debug build,
// which runs the 100 rounds only.
#if defined(NDEBUG) && !defined(__SANITIZE_ADDRESS__)
INSTANTIATE_TEST_SUITE_P(Vectors, MLKEMAccumulated, ::testing::Values(100, 10000));
#else
INSTANTIATE_TEST_SUITE_P(Vectors, MLKEMAccumulated, ::testing::Values(100));
#endif

TEST(MLKEM, FreshKeysAndEncapsulationsAgree) {
  MLKEM768KeyPair pair = mlkem768GenerateKeyPair();
  std::optional<MLKEM768Encapsulation> sent = mlkem768Encapsulate(pair.encapsulationKey);
  ASSERT_TRUE(sent);
  EXPECT_EQ(mlkem768Decapsulate(pair.decapsulationKey.view(), sent->ciphertext),
            sent->sharedSecret);
  EXPECT_NE(mlkem768GenerateKeyPair().encapsulationKey, pair.encapsulationKey);
}

}  // namespace
}  // namespace quorvane::crypto
