#include "Base/Base64.h"

#include <array>

namespace quorvane {

namespace {

constexpr char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

constexpr std::array<int8_t, 256> makeDecodeTable() {
  std::array<int8_t, 256> table{};
  table.fill(-1);
  for (int i = 0; i < 64; ++i) table[static_cast<uint8_t>(kAlphabet[i])] = static_cast<int8_t>(i);
  return table;
}

constexpr auto kDecodeTable = makeDecodeTable();

}  // namespace

std::string base64Encode(ByteView bytes, Base64Padding padding) {
  std::string text;
  text.reserve((bytes.size() + 2) / 3 * 4);
  size_t i = 0;
  for (; i + 3 <= bytes.size(); i += 3) {
    uint32_t group = uint32_t{bytes[i]} << 16 | uint32_t{bytes[i + 1]} << 8 | bytes[i + 2];
    text.push_back(kAlphabet[group >> 18 & 63]);
    text.push_back(kAlphabet[group >> 12 & 63]);
    text.push_back(kAlphabet[group >> 6 & 63]);
    text.push_back(kAlphabet[group & 63]);
  }
  size_t left = bytes.size() - i;
  if (left > 0) {
    uint32_t group = uint32_t{bytes[i]} << 16 | (left == 2 ? uint32_t{bytes[i + 1]} << 8 : 0);
    text.push_back(kAlphabet[group >> 18 & 63]);
    text.push_back(kAlphabet[group >> 12 & 63]);
    if (left == 2) text.push_back(kAlphabet[group >> 6 & 63]);
    if (padding == Base64Padding::padded) text.append(left == 1 ? "==" : "=");
  }
  return text;
}

std::optional<Bytes> base64Decode(std::string_view text) {
  size_t padCount = 0;
  while (padCount < text.size() && padCount < 2 && text[text.size() - 1 - padCount] == '=')
    ++padCount;
  // Padding, when present, must complete the last group of four.
  if (padCount > 0 && text.size() % 4 != 0) return std::nullopt;
  std::string_view digits = text.substr(0, text.size() - padCount);
  size_t tail = digits.size() % 4;
  if (tail == 1) return std::nullopt;
  if (padCount > 0 && padCount != 4 - tail) return std::nullopt;

  Bytes bytes;
  bytes.reserve(digits.size() / 4 * 3 + 2);
  uint32_t accumulator = 0;
  int bits = 0;
  for (char c : digits) {
    int value = kDecodeTable[static_cast<uint8_t>(c)];
    if (value < 0) return std::nullopt;
    accumulator = (accumulator << 6 | static_cast<uint32_t>(value)) & 0xffffff;
    bits += 6;
    if (bits >= 8) {
      bits -= 8;
      bytes.push_back(static_cast<uint8_t>(accumulator >> bits));
    }
  }
  // Bits left over from a partial group must be zero in a canonical encoding.
  if ((accumulator & ((1u << bits) - 1)) != 0) return std::nullopt;
  return bytes;
}

}  // namespace quorvane
