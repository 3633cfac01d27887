#include <gtest/gtest.h>

#include "Base/Hex.h"
#include "Crypto/AESGCM.h"
#include "Crypto/DigestContext.h"
#include "Crypto/HMAC.h"
#include "Crypto/HMACContext.h"
#include "support/TestSupport.h"

namespace quorvane::crypto {
namespace {

// RFC 4231, test cases 1 and 2.
TEST(HMAC, MatchesRFC4231) {
  EXPECT_EQ(hexEncode(hmacSHA256(Bytes(20, 0x0b), bytesOf("Hi There"))),
            "b0344c61d8db38535ca8afceaf0bf12b881dc200c9833da726e9376c2e32cff7");
  EXPECT_EQ(hexEncode(hmacSHA256(bytesOf("Jefe"), bytesOf("what do ya want for nothing?"))),
            "5bdcc146bf60754e6a042426089575c75a003f089d2739839dec58b964ec3843");
}

struct GCMVector {
  const char* key;
  const char* sealed;  // ciphertext || tag
};

// Test cases 3 (AES-128) and 15 (AES-256) of McGrew and Viega, "The Galois/Counter Mode of
// Operation", which share nonce and plaintext.
constexpr const char* kNonce = "cafebabefacedbaddecaf888";
constexpr const char* kPlaintext =
    "d9313225f88406e5a55909c5aff5269a86a7a9531534f7da2e4c303d8a318a72"
    "1c3c0c95956809532fcf0e2449a6b525b16aedf5aa0de657ba637b391aafd255";
const GCMVector kGCMVectors[] = {
    {"feffe9928665731c6d6a8f9467308308",
     "42831ec2217774244b7221b784d0d49ce3aa212f2c02a4e035c17e2329aca12e"
     "21d514b25466931c7d8f6a5aac84aa051ba30b396a0aac973d58e091473f5985"
     "4d5c2af327cd64a62cf35abd2ba6fab4"},
    {"feffe9928665731c6d6a8f9467308308feffe9928665731c6d6a8f9467308308",
     "522dc1f099567d07f47f37a32a84427d643a8cdcbfe5c0c97598a2bd2555d1aa"
     "8cb08e48590dbb3da7b08b1056828838c5f61e6393ba7a0abcc9f662898015ad"
     "b094dac5d93471bdec1a502270e3cc6c"},
};

class AESGCMKnownAnswer : public ::testing::TestWithParam<GCMVector> {};

TEST_P(AESGCMKnownAnswer, SealsAndOpens) {
  const Bytes key = *hexDecode(GetParam().key);
  const Bytes nonce = *hexDecode(kNonce);
  const Bytes sealed = *hexDecode(GetParam().sealed);
  EXPECT_EQ(hexEncode(aesGCMSeal(key, nonce, *hexDecode(kPlaintext), {})), GetParam().sealed);
  EXPECT_EQ(aesGCMOpen(key, nonce, sealed, {}), hexDecode(kPlaintext));
}

TEST_P(AESGCMKnownAnswer, RefusesAnyChangeOrWrongAssociatedData) {
  const Bytes key = *hexDecode(GetParam().key);
  const Bytes nonce = *hexDecode(kNonce);
  const Bytes sealed = *hexDecode(GetParam().sealed);
  for (size_t index : {size_t{0}, sealed.size() / 2, sealed.size() - 1}) {
    Bytes changed = sealed;
    changed[index] ^= 0x01;
    EXPECT_FALSE(aesGCMOpen(key, nonce, changed, {})) << index;
  }
  EXPECT_FALSE(aesGCMOpen(key, nonce, sealed, bytesOf("aad")));
  EXPECT_FALSE(aesGCMOpen(key, nonce, ByteView(sealed).first(kAESGCMTagSize - 1), {}));
}

INSTANTIATE_TEST_SUITE_P(McGrewViega, AESGCMKnownAnswer, ::testing::ValuesIn(kGCMVectors));

}  // namespace
}  // namespace quorvane::crypto

namespace quorvane::crypto {
namespace {

// The reusable contexts must give what the one-shot functions give, message after message, for
// every algorithm and for keys shorter and longer than the block.
TEST(ReusableContexts, MatchOneShotDigestsAndMACsAcrossMessages) {
  const Bytes messages[] = {bytesOf(""), bytesOf("abc"), Bytes(1000, 0x5a)};
  const Bytes keys[] = {Bytes{}, Bytes(20, 0x0b), Bytes(200, 0xaa)};
  for (HashAlgorithm algorithm :
       {HashAlgorithm::sha1, HashAlgorithm::sha256, HashAlgorithm::sha384, HashAlgorithm::sha512}) {
    DigestContext digestContext(algorithm);
    for (const Bytes& message : messages) {
      Bytes out(digestContext.size());
      digestContext.update(ByteView(message).first(message.size() / 2));
      digestContext.update(ByteView(message).subspan(message.size() / 2));
      digestContext.finish(out);
      EXPECT_EQ(out, digest(algorithm, message));
    }
    for (const Bytes& key : keys) {
      HMACContext macContext(algorithm, key);
      for (const Bytes& message : messages) {
        Bytes out(macContext.size());
        macContext.update(message);
        macContext.finish(out);
        EXPECT_EQ(out, hmac(algorithm, key, message)) << key.size() << "/" << message.size();
      }
    }
  }
}

}  // namespace
}  // namespace quorvane::crypto
