// Decodes arbitrary text as base64, hexadecimal, an ISO 8601 date and a UUID. Whatever decodes
// must encode back to the same text (the decoders accept one canonical form), so a decoder that
// accepts too much or an encoder that disagrees with it aborts.
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "Base/Base64.h"
#include "Base/Date.h"
#include "Base/Hex.h"
#include "Base/UUID.h"

namespace {

void require(bool condition) {
  if (!condition) std::abort();
}

bool isLower(std::string_view text) {
  for (char c : text)
    if (c >= 'A' && c <= 'Z') return false;
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace quorvane;
  std::string_view text(reinterpret_cast<const char*>(data), size);

  if (auto bytes = base64Decode(text)) {
    bool padded = !text.empty() && text.back() == '=';
    std::string again = base64Encode(
        *bytes, padded || text.size() % 4 == 0 ? Base64Padding::padded : Base64Padding::unpadded);
    require(again == text);
  }
  if (auto bytes = hexDecode(text)) {
    if (isLower(text)) require(hexEncode(*bytes) == text);
  }
  if (auto date = Date::parseISO8601(text)) {
    require(Date::parseISO8601(date->iso8601()) == date);
  }
  if (auto uuid = UUID::parse(text)) {
    require(UUID::parse(uuid->uuidString()) == uuid);
  }
  return 0;
}
