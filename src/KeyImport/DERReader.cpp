#include "KeyImport/DERReader.h"

#include <openssl/bn.h>
#include <openssl/crypto.h>

#include "Base/CryptoError.h"
#include "Crypto/OpenSSLHandles.h"
#include "KeyImport/KeyImportError.h"

namespace quorvane {
namespace {

constexpr int kMaximumNesting = 32;

bool wellFormed(ByteView bytes, int depth) {
  if (depth > kMaximumNesting) return false;
  try {
    DERReader reader(bytes);
    while (!reader.isAtEnd()) {
      const uint8_t tag = *reader.peekTag();
      ByteView element = reader.readElement();
      if ((tag & 0x20) != 0) {
        DERReader inner(element);
        if (!wellFormed(inner.readContents(tag), depth + 1)) return false;
      }
    }
    return true;
  } catch (const KeyImportError&) {
    return false;
  }
}

}  // namespace

std::pair<uint8_t, ByteView> DERReader::next() {
  if (bytes_.size() < 2) throw KeyImportError::malformed();
  const uint8_t tag = bytes_[0];
  if ((tag & 0x1f) == 0x1f) throw KeyImportError::malformed();  // multi-byte tags are not used
  size_t length = bytes_[1];
  size_t header = 2;
  if (length & 0x80) {
    const size_t count = length & 0x7f;
    // 0x80 is BER's indefinite length; more than 4 length bytes is beyond any key file.
    if (count == 0 || count > 4 || bytes_.size() < 2 + count) throw KeyImportError::malformed();
    length = 0;
    for (size_t i = 0; i < count; ++i) length = (length << 8) | bytes_[2 + i];
    // Shortest form only: no leading zero byte, and the long form only from 128 on.
    if (bytes_[2] == 0 || length < 0x80) throw KeyImportError::malformed();
    header += count;
  }
  if (length > bytes_.size() - header) throw KeyImportError::malformed();
  ByteView contents = bytes_.subspan(header, length);
  bytes_ = bytes_.subspan(header + length);
  return {tag, contents};
}

ByteView DERReader::readContents(uint8_t tag) {
  if (peekTag() != tag) throw KeyImportError::malformed();
  return next().second;
}

ByteView DERReader::readElement() {
  const ByteView before = bytes_;
  next();
  return before.first(before.size() - bytes_.size());
}

std::optional<ByteView> DERReader::readOptionalContents(uint8_t tag) {
  if (peekTag() != tag) return std::nullopt;
  return next().second;
}

std::optional<DERReader> DERReader::readOptionalConstructed(uint8_t tag) {
  auto contents = readOptionalContents(tag);
  if (!contents) return std::nullopt;
  return DERReader(*contents);
}

ByteView DERReader::readUnsignedInteger() {
  ByteView contents = readContents(der::kInteger);
  if (contents.empty() || (contents[0] & 0x80) != 0) throw KeyImportError::malformed();
  if (contents.size() > 1 && contents[0] == 0 && (contents[1] & 0x80) == 0)
    throw KeyImportError::malformed();
  while (!contents.empty() && contents[0] == 0) contents = contents.subspan(1);
  return contents;
}

uint64_t DERReader::readSmallInteger() {
  ByteView magnitude = readUnsignedInteger();
  if (magnitude.size() > 8) throw KeyImportError::malformed();
  uint64_t value = 0;
  for (uint8_t byte : magnitude) value = (value << 8) | byte;
  return value;
}

ByteView DERReader::readObjectIdentifier() {
  ByteView contents = readContents(der::kObjectIdentifier);
  if (contents.empty() || (contents.back() & 0x80) != 0) throw KeyImportError::malformed();
  return contents;
}

ByteView DERReader::readBitString() {
  ByteView contents = readContents(der::kBitString);
  if (contents.empty() || contents[0] != 0) throw KeyImportError::malformed();
  return contents.subspan(1);
}

void DERReader::readNull() {
  if (!readContents(der::kNull).empty()) throw KeyImportError::malformed();
}

std::optional<uint8_t> DERReader::peekTag() const {
  if (bytes_.empty()) return std::nullopt;
  return bytes_[0];
}

void DERReader::expectEnd() const {
  if (!bytes_.empty()) throw KeyImportError::malformed();
}

bool isWellFormedDER(ByteView bytes) {
  try {
    DERReader reader(bytes);
    reader.readElement();
    if (!reader.isAtEnd()) return false;
  } catch (const KeyImportError&) {
    return false;
  }
  return wellFormed(bytes, 0);
}

std::string dottedObjectIdentifier(ByteView contents) {
  std::string text;
  uint64_t arc = 0;
  bool first = true;
  bool startOfArc = true;
  for (uint8_t byte : contents) {
    if (startOfArc && byte == 0x80) throw KeyImportError::malformed();
    if (arc > (UINT64_MAX >> 7)) throw KeyImportError::malformed();
    arc = (arc << 7) | (byte & 0x7f);
    startOfArc = (byte & 0x80) == 0;
    if (!startOfArc) continue;
    if (first) {
      // The first arc packs two: 40 * X + Y, with X of 0, 1 or 2.
      const uint64_t top = arc < 80 ? arc / 40 : 2;
      text = std::to_string(top) + "." + std::to_string(arc - 40 * top);
      first = false;
    } else {
      text += "." + std::to_string(arc);
    }
    arc = 0;
  }
  if (!startOfArc || first) throw KeyImportError::malformed();
  return text;
}

std::string decimalText(ByteView magnitude) {
  BIGNUMPtr number(BN_bin2bn(magnitude.data(), static_cast<int>(magnitude.size()), nullptr));
  if (!number) throw CryptoError::libraryFailure("BN_bin2bn");
  char* text = BN_bn2dec(number.get());
  if (text == nullptr) throw CryptoError::libraryFailure("BN_bn2dec");
  std::string result(text);
  OPENSSL_free(text);
  return result;
}

}  // namespace quorvane
