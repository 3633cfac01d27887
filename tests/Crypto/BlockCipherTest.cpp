// AES-CTR and CBC decryption against NIST SP 800-38A and, for 3DES and padding, against openssl.
#include <gtest/gtest.h>

#include "Base/Hex.h"
#include "Crypto/AESCTR.h"
#include "Crypto/CBC.h"
#include "support/TestSupport.h"

namespace quorvane::crypto {
namespace {

using testing::hex;

// The four plaintext blocks shared by every example of NIST SP 800-38A appendix F.
constexpr const char* kPlaintext =
    "6bc1bee22e409f96e93d7e117393172a ae2d8a571e03ac9c9eb76fac45af8e51"
    "30c81c46a35ce411e5fbc1191a0a52ef f69f2445df4f9b17ad2b417be66c3710";

struct CounterVector {
  const char* key;
  const char* ciphertext;
};

// F.5.1 (CTR-AES128) and F.5.5 (CTR-AES256), initial counter f0f1...feff.
const CounterVector kCounterVectors[] = {
    {"2b7e151628aed2a6abf7158809cf4f3c",
     "874d6191b620e3261bef6864990db6ce 9806f66b7970fdff8617187bb9fffdff"
     "5ae4df3edbd5d35e5b4f09020db03eab 1e031dda2fbe03d1792170a0f3009cee"},
    {"603deb1015ca71be2b73aef0857d77811f352c073b6108d72d9810a30914dff4",
     "601ec313775789a5b7a7f504bbf3d228 f443e3ca4d62b59aca84e990cacaf5c5"
     "2b0930daa23de94ce87017ba2d84988d dfc9c58db67aada613c2dd08457941a6"},
};

class AESCTRKnownAnswer : public ::testing::TestWithParam<CounterVector> {};

TEST_P(AESCTRKnownAnswer, TransformsBothWays) {
  const Bytes key = hex(GetParam().key), counter = hex("f0f1f2f3f4f5f6f7f8f9fafbfcfdfeff");
  const Bytes ciphertext = hex(GetParam().ciphertext);
  EXPECT_EQ(hexEncode(aesCTR(key, counter, hex(kPlaintext)).view()), hexEncode(ciphertext));
  EXPECT_EQ(aesCTR(key, counter, ciphertext).view().size(), ciphertext.size());
  EXPECT_EQ(hexEncode(aesCTR(key, counter, ciphertext).view()), hexEncode(hex(kPlaintext)));
  // A partial last block is allowed in counter mode.
  EXPECT_EQ(hexEncode(aesCTR(key, counter, ByteView(ciphertext).first(37)).view()),
            hexEncode(ByteView(hex(kPlaintext)).first(37)));
}

INSTANTIATE_TEST_SUITE_P(SP800_38A, AESCTRKnownAnswer, ::testing::ValuesIn(kCounterVectors));

struct CBCVector {
  CBCCipher cipher;
  const char* key;
  const char* ciphertext;
};

// F.2.2 (CBC-AES128) and F.2.4 (CBC-AES192), IV 000102...0f.
const CBCVector kCBCVectors[] = {
    {CBCCipher::aes128, "2b7e151628aed2a6abf7158809cf4f3c",
     "7649abac8119b246cee98e9b12e9197d 5086cb9b507219ee95db113a917678b2"
     "73bed6b8e3c1743b7116e69e22229516 3ff1caa1681fac09120eca307586e1a7"},
    {CBCCipher::aes192, "8e73b0f7da0e6452c810f32b809079e562f8ead2522c6b7b",
     "4f021db243bc633d7178183a9fa071e8 b4d9ada9ad7dedf4e5e738763f69145a"
     "571b242012fb7ae07fa9baac3df102e0 08b0e27988598881d920a9e64f5615cd"},
};

class CBCKnownAnswer : public ::testing::TestWithParam<CBCVector> {};

TEST_P(CBCKnownAnswer, DecryptsWithoutPadding) {
  const Bytes key = hex(GetParam().key), iv = hex("000102030405060708090a0b0c0d0e0f");
  const Bytes ciphertext = hex(GetParam().ciphertext);
  auto plain = cbcDecrypt(GetParam().cipher, key, iv, ciphertext, CBCPadding::none);
  ASSERT_TRUE(plain);
  EXPECT_EQ(hexEncode(plain->view()), hexEncode(hex(kPlaintext)));
  EXPECT_FALSE(
      cbcDecrypt(GetParam().cipher, key, iv, ByteView(ciphertext).first(40), CBCPadding::none));
}

INSTANTIATE_TEST_SUITE_P(SP800_38A, CBCKnownAnswer, ::testing::ValuesIn(kCBCVectors));

struct OpenSSLCBC {
  CBCCipher cipher;
  const char* name;
};

std::ostream& operator<<(std::ostream& out, const OpenSSLCBC& c) { return out << c.name; }

// openssl enc pads with PKCS#7; decryption must strip it, and refuse a broken last block.
class CBCAgainstOpenSSL : public ::testing::TestWithParam<OpenSSLCBC> {};

TEST_P(CBCAgainstOpenSSL, RemovesPaddingAndRefusesBrokenPadding) {
  testing::TemporaryDirectory directory;
  const std::string plaintext = "twenty-nine bytes of message";
  testing::writeFile(directory.path() / "plain", plaintext);
  const Bytes key(keyLength(GetParam().cipher), 0x42);
  const Bytes iv(blockLength(GetParam().cipher), 0x24);
  auto result = testing::runCommand({"openssl", "enc", std::string("-") + GetParam().name, "-K",
                                     hexEncode(key), "-iv", hexEncode(iv), "-in",
                                     (directory.path() / "plain").string()});
  ASSERT_EQ(result.exitCode, 0);
  const Bytes ciphertext = bytesOf(result.output);
  ASSERT_EQ(ciphertext.size() % blockLength(GetParam().cipher), 0u);

  auto plain = cbcDecrypt(GetParam().cipher, key, iv, ciphertext, CBCPadding::pkcs7);
  ASSERT_TRUE(plain);
  EXPECT_EQ(textOf(plain->view()), plaintext);

  // A wrong key garbles the last block, and with it the padding (almost always). The high bit is
  // changed because DES ignores the low bit of each key byte.
  Bytes otherKey = key;
  otherKey[0] ^= 0x80;
  EXPECT_FALSE(cbcDecrypt(GetParam().cipher, otherKey, iv, ciphertext, CBCPadding::pkcs7));
  EXPECT_FALSE(cbcDecrypt(GetParam().cipher, key, iv, {}, CBCPadding::pkcs7));
}

INSTANTIATE_TEST_SUITE_P(Ciphers, CBCAgainstOpenSSL,
                         ::testing::Values(OpenSSLCBC{CBCCipher::aes128, "aes-128-cbc"},
                                           OpenSSLCBC{CBCCipher::aes256, "aes-256-cbc"},
                                           OpenSSLCBC{CBCCipher::tripleDES, "des-ede3-cbc"}));

}  // namespace
}  // namespace quorvane::crypto
