// The strict DER reader, the object identifiers and the curve parameters the importer compares.
#include <gtest/gtest.h>
#include <openssl/bn.h>
#include <openssl/ec.h>
#include <openssl/obj_mac.h>

#include "Crypto/OpenSSLHandles.h"
#include "ImportTestSupport.h"
#include "KeyImport/DERReader.h"
#include "KeyImport/NamedCurve.h"
#include "KeyImport/ObjectIdentifiers.h"

namespace quorvane {
namespace {

using testing::hex;

struct DERCase {
  const char* name;
  const char* der;  // a SEQUENCE holding one INTEGER
  bool valid;
};

std::ostream& operator<<(std::ostream& out, const DERCase& c) { return out << c.name; }

const DERCase kDERCases[] = {
    {"Minimal", "30 03 02 01 05", true},
    {"LongFormLength", "30 81 83 02 81 80" /* 128-byte integer */, true},
    {"WrongTag", "31 03 02 01 05", false},
    {"LengthBeyondData", "30 04 02 01 05", false},
    {"InnerLengthBeyondData", "30 03 02 02 05", false},
    {"TrailingByte", "30 03 02 01 05 00", false},
    {"TrailingByteInside", "30 04 02 01 05 00", false},
    {"IndefiniteLength", "30 80 02 01 05 00 00", false},
    {"LongFormForShortLength", "30 81 03 02 01 05", false},
    {"LengthWithLeadingZero", "30 82 00 03 02 01 05", false},
    {"NegativeInteger", "30 03 02 01 85", false},
    {"PaddedInteger", "30 04 02 02 00 05", false},
    {"EmptyInteger", "30 02 02 00", false},
    {"MultiByteTag", "3f 01 03 02 01 05", false},
    {"Truncated", "30", false},
};

class StrictDER : public ::testing::TestWithParam<DERCase> {};

TEST_P(StrictDER, ReadsOnlyWellFormedElements) {
  Bytes der = hex(GetParam().der);
  if (std::string_view(GetParam().name) == "LongFormLength") {
    Bytes integer(128, 0x11);
    der.insert(der.end(), integer.begin(), integer.end());
  }
  auto read = [&] {
    DERReader outer(der);
    DERReader sequence = outer.readConstructed();
    sequence.readUnsignedInteger();
    sequence.expectEnd();
    outer.expectEnd();
  };
  if (GetParam().valid) {
    EXPECT_NO_THROW(read());
    EXPECT_TRUE(isWellFormedDER(der));
  } else {
    EXPECT_THROW(read(), KeyImportError);
  }
}

INSTANTIATE_TEST_SUITE_P(Encodings, StrictDER, ::testing::ValuesIn(kDERCases),
                         testing::caseName<DERCase>);

TEST(ObjectIdentifiers, HaveTheirDottedNames) {
  const std::pair<oid::Contents, const char*> known[] = {
      {oid::kRSAEncryption, "1.2.840.113549.1.1.1"},
      {oid::kECPublicKey, "1.2.840.10045.2.1"},
      {oid::kPrimeField, "1.2.840.10045.1.1"},
      {oid::kP256, "1.2.840.10045.3.1.7"},
      {oid::kP384, "1.3.132.0.34"},
      {oid::kP521, "1.3.132.0.35"},
      {oid::kEd25519, "1.3.101.112"},
      {oid::kPBES2, "1.2.840.113549.1.5.13"},
      {oid::kPBKDF2, "1.2.840.113549.1.5.12"},
      {oid::kHMACWithSHA1, "1.2.840.113549.2.7"},
      {oid::kHMACWithSHA256, "1.2.840.113549.2.9"},
      {oid::kHMACWithSHA512, "1.2.840.113549.2.11"},
      {oid::kAES128CBC, "2.16.840.1.101.3.4.1.2"},
      {oid::kAES192CBC, "2.16.840.1.101.3.4.1.22"},
      {oid::kAES256CBC, "2.16.840.1.101.3.4.1.42"},
      {oid::kDESEDE3CBC, "1.2.840.113549.3.7"},
  };
  for (const auto& [contents, dotted] : known) EXPECT_EQ(dottedObjectIdentifier(contents), dotted);
  EXPECT_THROW(dottedObjectIdentifier(hex("2a 86")), KeyImportError);     // unterminated arc
  EXPECT_THROW(dottedObjectIdentifier(hex("2a 80 01")), KeyImportError);  // padded arc
}

// The curve constants against OpenSSL's own tables.
TEST(NamedCurves, EqualOpenSSLsParameters) {
  using ECGroupPtr = std::unique_ptr<EC_GROUP, OpenSSLDeleter<EC_GROUP_free>>;
  for (const auto& [curve, nid] : {std::pair{&NamedCurve::p256(), NID_X9_62_prime256v1},
                                   std::pair{&NamedCurve::p384(), NID_secp384r1}}) {
    ECGroupPtr group(EC_GROUP_new_by_curve_name(nid));
    BIGNUMPtr p(BN_new()), a(BN_new()), b(BN_new());
    ASSERT_EQ(EC_GROUP_get_curve(group.get(), p.get(), a.get(), b.get(), nullptr), 1);
    const size_t size = curve->p.size();
    auto bytes = [&](const BIGNUM* number) {
      Bytes out(size);
      BN_bn2binpad(number, out.data(), static_cast<int>(size));
      return out;
    };
    EXPECT_EQ(bytes(p.get()), curve->p);
    EXPECT_EQ(bytes(a.get()), curve->a);
    EXPECT_EQ(bytes(b.get()), curve->b);
    EXPECT_EQ(bytes(EC_GROUP_get0_order(group.get())), curve->n);
    Bytes generator(1 + 2 * size);
    EC_POINT_point2oct(group.get(), EC_GROUP_get0_generator(group.get()),
                       POINT_CONVERSION_UNCOMPRESSED, generator.data(), generator.size(), nullptr);
    EXPECT_EQ(generator, curve->g);
  }
}

}  // namespace
}  // namespace quorvane
