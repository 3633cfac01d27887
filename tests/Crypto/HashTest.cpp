#include <gtest/gtest.h>

#include "Base/Hex.h"
#include "Crypto/Hash.h"
#include "support/TestSupport.h"

namespace quorvane::crypto {
namespace {

struct HashVector {
  HashAlgorithm algorithm;
  std::string message;
  std::string digestHex;
};

// FIPS 180-4 examples ("abc") and the empty message, from NIST's "Cryptographic Standards and
// Guidelines: Examples with Intermediate Values".
const HashVector kVectors[] = {
    {HashAlgorithm::sha1, "abc", "a9993e364706816aba3e25717850c26c9cd0d89d"},
    {HashAlgorithm::sha256, "abc",
     "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad"},
    {HashAlgorithm::sha384, "abc",
     "cb00753f45a35e8bb5a03d699ac65007272c32ab0eded1631a8b605a43ff5bed"
     "8086072ba1e7cc2358baeca134c825a7"},
    {HashAlgorithm::sha512, "abc",
     "ddaf35a193617abacc417349ae20413112e6fa4e89a97ea20a9eeee64b55d39a"
     "2192992a274fc1a836ba3c23a3feebbd454d4423643ce80e2a9ac94fa54ca49f"},
    {HashAlgorithm::sha512, "",
     "cf83e1357eefb8bdf1542850d66d8007d620e4050b5715dc83f4a921d36ce9ce"
     "47d0d13c5d85f2b0ff8318d2877eec2f63b931bd47417a81a538327af927da3e"},
};

class HashKnownAnswer : public ::testing::TestWithParam<HashVector> {};

TEST_P(HashKnownAnswer, MatchesPublishedDigest) {
  const HashVector& vector = GetParam();
  EXPECT_EQ(hexEncode(digest(vector.algorithm, bytesOf(vector.message))), vector.digestHex);
}

INSTANTIATE_TEST_SUITE_P(Fips180, HashKnownAnswer, ::testing::ValuesIn(kVectors));

}  // namespace
}  // namespace quorvane::crypto
