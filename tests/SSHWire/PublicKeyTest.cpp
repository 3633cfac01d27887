#include <gtest/gtest.h>

#include <sstream>

#include "Base/Base64.h"
#include "SSHWire/SSHPublicKey.h"
#include "SSHWire/SSHSignature.h"
#include "SSHWire/WireError.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSupport.h"
#include "support/WireTestSupport.h"

namespace quorvane {
namespace {

using testing::hex;

Bytes blobOf(std::initializer_list<Bytes> strings, const Bytes& tail = {}) {
  WireWriter writer;
  for (const Bytes& s : strings) writer.writeString(s);
  writer.writeRaw(tail);
  return std::move(writer).take();
}

struct MalformedBlob {
  std::string name;
  Bytes blob;
  WireError error;
};

std::ostream& operator<<(std::ostream& out, const MalformedBlob& c) { return out << c.name; }

const Bytes kEd25519Key(32, 0x11);
const Bytes kP256Point = [] {
  Bytes point(65, 0x22);
  point[0] = 0x04;
  return point;
}();

const MalformedBlob kMalformedBlobs[] = {
    {"ed25519 key of 31 bytes", blobOf({bytesOf("ssh-ed25519"), Bytes(31, 1)}),
     WireError::invalid("ed25519 length")},
    {"ed25519 key of 33 bytes", blobOf({bytesOf("ssh-ed25519"), Bytes(33, 1)}),
     WireError::invalid("ed25519 length")},
    {"nistp384 type with nistp256 curve",
     blobOf({bytesOf("ecdsa-sha2-nistp384"), bytesOf("nistp256"), kP256Point}),
     WireError::invalid("curve mismatch")},
    {"ed25519 with one byte more", blobOf({bytesOf("ssh-ed25519"), kEd25519Key}, hex("00")),
     WireError::trailingBytes(1)},
    {"rsa with one byte more", blobOf({bytesOf("ssh-rsa"), hex("010001"), hex("00c1")}, hex("00")),
     WireError::trailingBytes(1)},
    {"rsa without modulus", blobOf({bytesOf("ssh-rsa"), hex("010001")}), WireError::truncated()},
    {"rsa with an oversized modulus", blobOf({bytesOf("ssh-rsa"), hex("010001")}, hex("00040001")),
     WireError::lengthTooLarge(262145)},
    {"type name not UTF-8", blobOf({hex("ff")}), WireError::invalid("utf8")},
    {"empty blob", {}, WireError::truncated()},
};

class PublicKeyRejects : public ::testing::TestWithParam<MalformedBlob> {};

TEST_P(PublicKeyRejects, MalformedBlob) {
  EXPECT_EQ(testing::wireErrorOf([&] { SSHPublicKey::parse(GetParam().blob); }), GetParam().error);
}

INSTANTIATE_TEST_SUITE_P(Blobs, PublicKeyRejects, ::testing::ValuesIn(kMalformedBlobs));

TEST(PublicKey, EveryPrefixOfAKnownTypeIsTruncated) {
  for (const Bytes& blob : {SSHPublicKey::ed25519(kEd25519Key).blob,
                            SSHPublicKey::ecdsa(SSHKeyType::ecdsaP256, kP256Point).blob,
                            SSHPublicKey::rsa(hex("010001"), hex("c1c2c3")).blob}) {
    for (size_t length = 0; length < blob.size(); ++length) {
      Bytes prefix(blob.begin(), blob.begin() + static_cast<ptrdiff_t>(length));
      EXPECT_EQ(testing::wireErrorOf([&] { SSHPublicKey::parse(prefix); }), WireError::truncated());
    }
  }
}

TEST(PublicKey, UnknownTypesAreKeptAsOther) {
  Bytes blob = blobOf({bytesOf("ssh-dss")}, hex("0102030405"));
  SSHPublicKey key = SSHPublicKey::parse(blob);
  EXPECT_EQ(key.type, "ssh-dss");
  EXPECT_EQ(key.material, SSHPublicKey::Material(SSHPublicKey::Other{hex("0102030405")}));
  EXPECT_EQ(key.blob, blob);
  EXPECT_FALSE(key.keyType().has_value());
  EXPECT_EQ(key.fingerprint(), fingerprint(blob));

  Bytes hybrid = blobOf({bytesOf("ssh-mldsa44-ed25519"), hex("aa")});
  EXPECT_EQ(SSHPublicKey::parse(hybrid).material,
            SSHPublicKey::Material(SSHPublicKey::Other{hex("00000001 aa")}));
}

TEST(Fingerprint, IsUnpaddedBase64OfSHA256) {
  // SHA-256 of the empty string, e3b0c442..., in base64 without its "=".
  EXPECT_EQ(fingerprint(Bytes{}), "SHA256:47DEQpj8HBSa+/TImW+5JCeuQeRkm5NMpJWZG3hSuFU");
  for (int i = 0; i < 64; ++i) {
    std::string text = fingerprint(Bytes(static_cast<size_t>(i), static_cast<uint8_t>(i)));
    EXPECT_EQ(text.size(), 7u + 43u);
    EXPECT_NE(text.back(), '=');
  }
}

struct AlgorithmCase {
  SSHKeyType type;
  uint32_t flags;
  std::optional<std::string> algorithm;
};

TEST(SignatureAlgorithm, RSAFlagsChooseSHA2AndNeverSHA1) {
  const AlgorithmCase cases[] = {
      {SSHKeyType::rsa, 6, "rsa-sha2-256"},
      {SSHKeyType::rsa, 2, "rsa-sha2-256"},
      {SSHKeyType::rsa, 4, "rsa-sha2-512"},
      {SSHKeyType::rsa, 0, std::nullopt},
      {SSHKeyType::rsa, 1, std::nullopt},
      {SSHKeyType::rsa, 0xfffffff9, std::nullopt},
      {SSHKeyType::ecdsaP256, 4, "ecdsa-sha2-nistp256"},
      {SSHKeyType::ecdsaP384, 0, "ecdsa-sha2-nistp384"},
      {SSHKeyType::ed25519, 2, "ssh-ed25519"},
  };
  for (const AlgorithmCase& c : cases)
    EXPECT_EQ(signatureAlgorithm(c.type, SignFlags{c.flags}), c.algorithm)
        << keyTypeName(c.type) << " flags " << c.flags;
}

TEST(SSHSignature, ECDSAHalvesBecomeMinimalMpints) {
  Bytes raw =
      hex("80000000000000000000000000000000000000000000000000000000000000aa"    // r, high bit set
          "00000000000000000000000000000000000000000000000000000000000001bb");  // s, leading zeros
  WireWriter inner;
  inner.writeString(hex("0080000000000000000000000000000000000000000000000000000000000000aa"));
  inner.writeString(hex("01bb"));
  EXPECT_EQ(SSHSignature::ecdsa(SSHKeyType::ecdsaP256, raw),
            blobOf({bytesOf("ecdsa-sha2-nistp256"), inner.data()}));
}

}  // namespace
}  // namespace quorvane
