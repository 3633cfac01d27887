#include "Platform/KeychainItemFile.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "Base/Check.h"

namespace quorvane {

namespace {

constexpr std::string_view kMagic = "QVKCITEM";
constexpr uint8_t kVersion = 1;

// Reads the item's fields front to back; every read goes through `take`.
class ItemReader {
 public:
  explicit ItemReader(ByteView bytes) : rest_(bytes) {}

  ByteView take(size_t count) {
    if (count > rest_.size()) throw KeychainItemError::truncated();
    ByteView taken = rest_.first(count);
    rest_ = rest_.subspan(count);
    return taken;
  }

  ByteView field(size_t limit) {
    ByteView length = take(4);
    uint32_t value = (uint32_t{length[0]} << 24) | (uint32_t{length[1]} << 16) |
                     (uint32_t{length[2]} << 8) | uint32_t{length[3]};
    if (value > limit) throw KeychainItemError::lengthTooLarge(value);
    return take(value);
  }

  void expectEnd() const {
    if (!rest_.empty()) throw KeychainItemError::trailingBytes(rest_.size());
  }

 private:
  ByteView rest_;
};

uint8_t* putField(uint8_t* out, ByteView field) {
  const auto length = static_cast<uint32_t>(field.size());
  *out++ = static_cast<uint8_t>(length >> 24);
  *out++ = static_cast<uint8_t>(length >> 16);
  *out++ = static_cast<uint8_t>(length >> 8);
  *out++ = static_cast<uint8_t>(length);
  return std::copy(field.begin(), field.end(), out);
}

ByteView viewOf(std::string_view text) {
  return ByteView(reinterpret_cast<const uint8_t*>(text.data()), text.size());
}

}  // namespace

SecureBytes KeychainItemFile::encode() const {
  QUORVANE_CHECK(
      service.size() <= kNameLimit && account.size() <= kNameLimit && data.size() <= kDataLimit,
      "keychain item fields within their limits");
  SecureBytes out(kMagic.size() + 1 + 12 + service.size() + account.size() + data.size());
  uint8_t* cursor = std::copy(kMagic.begin(), kMagic.end(), out.data());
  *cursor++ = kVersion;
  cursor = putField(cursor, viewOf(service));
  cursor = putField(cursor, viewOf(account));
  putField(cursor, data.view());
  return out;
}

KeychainItemFile KeychainItemFile::decode(ByteView bytes) {
  ItemReader reader(bytes);
  if (bytes.size() < kMagic.size() ||
      std::memcmp(reader.take(kMagic.size()).data(), kMagic.data(), kMagic.size()) != 0)
    throw KeychainItemError::badMagic();
  const uint8_t version = reader.take(1)[0];
  if (version != kVersion) throw KeychainItemError::unsupportedVersion(version);
  KeychainItemFile item;
  item.service = textOf(reader.field(kNameLimit));
  item.account = textOf(reader.field(kNameLimit));
  item.data = SecureBytes(reader.field(kDataLimit));
  reader.expectEnd();
  return item;
}

}  // namespace quorvane
