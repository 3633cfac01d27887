#include "ProcessContext/UTF8Text.h"

#include <cstdint>

namespace quorvane {

namespace {

constexpr std::string_view kReplacementCharacter = "\xEF\xBF\xBD";

bool isContinuation(uint8_t byte) { return (byte & 0xC0) == 0x80; }

// The length of the well-formed sequence at `text[i]`, or 0 when it is ill-formed; `subpart` is
// then the length of its maximal subpart (at least 1), the bytes one U+FFFD stands for. Follows the
// table of well-formed byte sequences of the Unicode standard (3.9, table 3-7).
size_t sequenceAt(std::string_view text, size_t i, size_t& subpart) {
  auto byte = [&](size_t k) { return static_cast<uint8_t>(text[i + k]); };
  uint8_t lead = byte(0);
  subpart = 1;
  if (lead < 0x80) return 1;
  size_t length;
  uint8_t low = 0x80, high = 0xBF;  // the range of the second byte
  if (lead >= 0xC2 && lead <= 0xDF) {
    length = 2;
  } else if (lead >= 0xE0 && lead <= 0xEF) {
    length = 3;
    if (lead == 0xE0) low = 0xA0;
    if (lead == 0xED) high = 0x9F;
  } else if (lead >= 0xF0 && lead <= 0xF4) {
    length = 4;
    if (lead == 0xF0) low = 0x90;
    if (lead == 0xF4) high = 0x8F;
  } else {
    return 0;
  }
  size_t available = text.size() - i;
  if (available < 2 || byte(1) < low || byte(1) > high) return 0;
  subpart = 2;
  for (size_t k = 2; k < length; ++k) {
    if (k >= available || !isContinuation(byte(k))) return 0;
    subpart = k + 1;
  }
  return length;
}

}  // namespace

std::string repairUTF8(std::string_view bytes) {
  if (isValidUTF8(bytes)) return std::string(bytes);
  std::string repaired;
  repaired.reserve(3 * bytes.size());  // the most a repair can grow, so nothing is reallocated
  size_t subpart;
  for (size_t i = 0; i < bytes.size();) {
    size_t length = sequenceAt(bytes, i, subpart);
    if (length == 0) {
      repaired += kReplacementCharacter;
      i += subpart;
    } else {
      repaired.append(bytes.substr(i, length));
      i += length;
    }
  }
  return repaired;
}

size_t codePointCount(std::string_view text) {
  size_t count = 0;
  for (char c : text)
    if (!isContinuation(static_cast<uint8_t>(c))) ++count;
  return count;
}

std::string_view codePointPrefix(std::string_view text, size_t count) {
  size_t seen = 0;
  for (size_t i = 0; i < text.size(); ++i) {
    if (isContinuation(static_cast<uint8_t>(text[i]))) continue;
    if (seen == count) return text.substr(0, i);
    ++seen;
  }
  return text;
}

}  // namespace quorvane
