#include "Base/UTF8.h"

namespace quorvane {

bool isValidUTF8(ByteView bytes) {
  size_t i = 0;
  while (i < bytes.size()) {
    uint8_t lead = bytes[i];
    if (lead < 0x80) {
      ++i;
      continue;
    }
    size_t length;
    uint8_t low = 0x80, high = 0xbf;  // allowed range of the second byte
    if (lead >= 0xc2 && lead <= 0xdf) {
      length = 2;
    } else if (lead >= 0xe0 && lead <= 0xef) {
      length = 3;
      if (lead == 0xe0) low = 0xa0;   // overlong
      if (lead == 0xed) high = 0x9f;  // surrogates
    } else if (lead >= 0xf0 && lead <= 0xf4) {
      length = 4;
      if (lead == 0xf0) low = 0x90;   // overlong
      if (lead == 0xf4) high = 0x8f;  // above U+10FFFF
    } else {
      return false;
    }
    if (bytes.size() - i < length) return false;
    if (bytes[i + 1] < low || bytes[i + 1] > high) return false;
    for (size_t k = 2; k < length; ++k)
      if ((bytes[i + k] & 0xc0) != 0x80) return false;
    i += length;
  }
  return true;
}

}  // namespace quorvane
