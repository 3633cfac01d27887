#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Base/Bytes.h"

namespace quorvane {

// Tags of the ASN.1 types that key files use (X.690 identifier octets).
namespace der {
inline constexpr uint8_t kInteger = 0x02;
inline constexpr uint8_t kBitString = 0x03;
inline constexpr uint8_t kOctetString = 0x04;
inline constexpr uint8_t kNull = 0x05;
inline constexpr uint8_t kObjectIdentifier = 0x06;
inline constexpr uint8_t kSequence = 0x30;
// A context-specific tag [number], constructed (explicit tagging).
constexpr uint8_t contextConstructed(uint8_t number) { return 0xa0 | number; }
// A context-specific tag [number], primitive (implicit tagging of a primitive type).
constexpr uint8_t contextPrimitive(uint8_t number) { return 0x80 | number; }
}  // namespace der

// A strict reader of DER (X.690): single-byte tags, definite lengths in their shortest form, and
// no content past the element's length. Every failure throws KeyImportError::malformed. The reader
// views bytes owned by the caller; readers of nested elements view the same buffer.
class DERReader {
 public:
  explicit DERReader(ByteView bytes) : bytes_(bytes) {}

  // The contents of the next element, which must have `tag`.
  ByteView readContents(uint8_t tag);
  // A reader over the contents of the next element with `tag` (a SEQUENCE by default).
  DERReader readConstructed(uint8_t tag = der::kSequence) { return DERReader(readContents(tag)); }
  // The next element whole (tag, length and contents), whatever its tag.
  ByteView readElement();
  // As readContents / readConstructed, when the next element has `tag`; nothing otherwise.
  std::optional<ByteView> readOptionalContents(uint8_t tag);
  std::optional<DERReader> readOptionalConstructed(uint8_t tag);

  // A non-negative INTEGER as its big-endian magnitude without leading zero bytes (empty for 0).
  // Negative numbers and non-minimal encodings are malformed.
  ByteView readUnsignedInteger();
  // A non-negative INTEGER that fits in 64 bits.
  uint64_t readSmallInteger();
  ByteView readOctetString() { return readContents(der::kOctetString); }
  // The contents octets of an OBJECT IDENTIFIER.
  ByteView readObjectIdentifier();
  // A BIT STRING of whole bytes (no unused bits).
  ByteView readBitString();
  void readNull();

  bool isAtEnd() const { return bytes_.empty(); }
  // The tag of the next element; nothing at the end.
  std::optional<uint8_t> peekTag() const;
  // Ends a structure: anything left is malformed.
  void expectEnd() const;

 private:
  // Splits off the next element: its tag, and its contents.
  std::pair<uint8_t, ByteView> next();

  ByteView bytes_;
};

// Whether `bytes` are exactly one DER element whose constructed parts, to any depth, are sequences
// of well-formed elements. Used to tell a successful decryption from garbage.
bool isWellFormedDER(ByteView bytes);

// An OBJECT IDENTIFIER's contents in dotted decimal, e.g. "1.2.840.10040.4.1". Malformed contents
// (an unterminated arc, a padded arc, an arc over 64 bits) throw malformed.
std::string dottedObjectIdentifier(ByteView contents);

// A big-endian magnitude in decimal.
std::string decimalText(ByteView magnitude);

}  // namespace quorvane
