#include "KeyImport/NamedCurve.h"

#include <algorithm>

#include "Base/Hex.h"
#include "KeyImport/KeyImportError.h"
#include "KeyImport/ObjectIdentifiers.h"

namespace quorvane {
namespace {

Bytes decode(std::string_view text) { return *hexDecode(text); }

ByteView withoutLeadingZeros(ByteView bytes) {
  while (!bytes.empty() && bytes[0] == 0) bytes = bytes.subspan(1);
  return bytes;
}

bool sameNumber(ByteView a, ByteView b) {
  a = withoutLeadingZeros(a);
  b = withoutLeadingZeros(b);
  return std::equal(a.begin(), a.end(), b.begin(), b.end());
}

bool matches(const NamedCurve& curve, ByteView p, ByteView a, ByteView b, ByteView g, ByteView n) {
  return sameNumber(p, curve.p) && sameNumber(a, curve.a) && sameNumber(b, curve.b) &&
         sameNumber(n, curve.n) && isSamePoint(g, curve.g);
}

// SpecifiedECDomain (SEC 1 C.2): version, fieldID { fieldType, p }, curve { a, b, seed? },
// base, order, cofactor?, hash?
KeyAlgorithm curveOfExplicitParameters(DERReader domain) {
  const uint64_t version = domain.readSmallInteger();
  if (version < 1 || version > 3) throw KeyImportError::malformed();
  DERReader field = domain.readConstructed();
  if (!oid::equal(field.readObjectIdentifier(), oid::kPrimeField))
    throw KeyImportError::unsupportedKeyType("elliptic curve over a binary field");
  const ByteView p = field.readUnsignedInteger();
  field.expectEnd();
  DERReader curve = domain.readConstructed();
  const ByteView a = curve.readOctetString();
  const ByteView b = curve.readOctetString();
  curve.readOptionalContents(der::kBitString);
  curve.expectEnd();
  const ByteView base = domain.readOctetString();
  const ByteView order = domain.readUnsignedInteger();
  bool cofactorIsOne = true;
  if (domain.peekTag() == der::kInteger) {
    const ByteView cofactor = domain.readUnsignedInteger();
    cofactorIsOne = cofactor.size() == 1 && cofactor[0] == 1;
  }
  domain.readOptionalContents(der::kSequence);
  domain.expectEnd();
  if (cofactorIsOne) {
    for (const NamedCurve* known : {&NamedCurve::p256(), &NamedCurve::p384()})
      if (matches(*known, p, a, b, base, order)) return known->algorithm;
  }
  throw KeyImportError::unsupportedKeyType("unknown elliptic curve");
}

}  // namespace

const NamedCurve& NamedCurve::p256() {
  static const NamedCurve curve{
      KeyAlgorithm::ecdsaP256,
      decode("ffffffff00000001000000000000000000000000ffffffffffffffffffffffff"),
      decode("ffffffff00000001000000000000000000000000fffffffffffffffffffffffc"),
      decode("5ac635d8aa3a93e7b3ebbd55769886bc651d06b0cc53b0f63bce3c3e27d2604b"),
      decode("04"
             "6b17d1f2e12c4247f8bce6e563a440f277037d812deb33a0f4a13945d898c296"
             "4fe342e2fe1a7f9b8ee7eb4a7c0f9e162bce33576b315ececbb6406837bf51f5"),
      decode("ffffffff00000000ffffffffffffffffbce6faada7179e84f3b9cac2fc632551"),
  };
  return curve;
}

const NamedCurve& NamedCurve::p384() {
  static const NamedCurve curve{
      KeyAlgorithm::ecdsaP384,
      decode("fffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffe"
             "ffffffff0000000000000000ffffffff"),
      decode("fffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffffe"
             "ffffffff0000000000000000fffffffc"),
      decode("b3312fa7e23ee7e4988e056be3f82d19181d9c6efe8141120314088f5013875a"
             "c656398d8a2ed19d2a85c8edd3ec2aef"),
      decode("04"
             "aa87ca22be8b05378eb1c71ef320ad746e1d3b628ba79b9859f741e082542a38"
             "5502f25dbf55296c3a545e3872760ab7"
             "3617de4a96262c6f5d9e98bf9292dc29f8f41dbd289a147ce9da3113b5f0b8c0"
             "0a60b1ce1d7e819d7a431d7c90ea0e5f"),
      decode("ffffffffffffffffffffffffffffffffffffffffffffffffc7634d81f4372ddf"
             "581a0db248b0a77aecec196accc52973"),
  };
  return curve;
}

KeyAlgorithm curveOfParameters(ByteView parametersElement) {
  DERReader reader(parametersElement);
  if (reader.peekTag() == der::kSequence) {
    DERReader domain = reader.readConstructed();
    reader.expectEnd();
    return curveOfExplicitParameters(domain);
  }
  if (reader.peekTag() != der::kObjectIdentifier) {
    // implicitlyCA (NULL) names no curve of its own.
    reader.readNull();
    reader.expectEnd();
    throw KeyImportError::unsupportedKeyType("unknown elliptic curve");
  }
  const ByteView name = reader.readObjectIdentifier();
  reader.expectEnd();
  if (oid::equal(name, oid::kP256)) return KeyAlgorithm::ecdsaP256;
  if (oid::equal(name, oid::kP384)) return KeyAlgorithm::ecdsaP384;
  if (oid::equal(name, oid::kP521)) throw KeyImportError::unsupportedKeyType("ecdsa-sha2-nistp521");
  throw KeyImportError::unsupportedKeyType("unknown elliptic curve");
}

bool isSamePoint(ByteView encoded, ByteView uncompressed) {
  if (uncompressed.empty() || uncompressed.size() % 2 == 0) return false;
  const size_t coordinate = (uncompressed.size() - 1) / 2;
  if (encoded.size() == uncompressed.size())
    return std::equal(encoded.begin(), encoded.end(), uncompressed.begin());
  if (encoded.size() != 1 + coordinate) return false;
  const uint8_t parity = uncompressed.back() & 1;
  return encoded[0] == 0x02 + parity &&
         std::equal(encoded.begin() + 1, encoded.end(), uncompressed.begin() + 1);
}

}  // namespace quorvane
