#include "Base/UUID.h"

#include <algorithm>
#include <cctype>

#include "Base/Hex.h"
#include "Base/Random.h"

namespace quorvane {

namespace {

constexpr size_t kDashPositions[] = {8, 13, 18, 23};
constexpr size_t kTextLength = 36;

bool isDashPosition(size_t index) {
  for (size_t dash : kDashPositions)
    if (index == dash) return true;
  return false;
}

}  // namespace

UUID UUID::random() {
  UUID uuid;
  crypto::fillRandom(uuid.bytes);
  uuid.bytes[6] = static_cast<uint8_t>((uuid.bytes[6] & 0x0f) | 0x40);  // version 4
  uuid.bytes[8] = static_cast<uint8_t>((uuid.bytes[8] & 0x3f) | 0x80);  // RFC 4122 variant
  return uuid;
}

std::optional<UUID> UUID::parse(std::string_view text) {
  if (text.size() != kTextLength) return std::nullopt;
  std::string digits;
  for (size_t i = 0; i < text.size(); ++i) {
    if (isDashPosition(i)) {
      if (text[i] != '-') return std::nullopt;
    } else {
      digits.push_back(text[i]);
    }
  }
  auto decoded = hexDecode(digits);
  if (!decoded) return std::nullopt;
  UUID uuid;
  std::copy(decoded->begin(), decoded->end(), uuid.bytes.begin());
  return uuid;
}

std::string UUID::uuidString() const {
  std::string hex = hexEncode(bytes);
  std::string text;
  for (size_t i = 0, digit = 0; i < kTextLength; ++i)
    text.push_back(isDashPosition(i) ? '-' : static_cast<char>(std::toupper(hex[digit++])));
  return text;
}

}  // namespace quorvane
