#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"

namespace quorvane {

// Result codes of keychain operations. They carry the macOS Keychain's numbers so that every
// backend reports the same values and callers can pass a status on in their own errors.
using KeychainStatus = int32_t;
inline constexpr KeychainStatus kKeychainSuccess = 0;
inline constexpr KeychainStatus kKeychainItemNotFound = -25300;   // errSecItemNotFound
inline constexpr KeychainStatus kKeychainDuplicateItem = -25299;  // errSecDuplicateItem
inline constexpr KeychainStatus kKeychainIOError = -36;           // ioErr: the store failed
inline constexpr KeychainStatus kKeychainParameterError = -50;    // errSecParam
inline constexpr KeychainStatus kKeychainDecodeError = -26275;    // errSecDecode: a damaged item

// What a read returns: on success the item's data, otherwise only the status.
struct KeychainReadResult {
  KeychainStatus status = kKeychainItemNotFound;
  SecureBytes data;
};

// One written state of an item: it changes whenever the item is written or removed, so a reader
// that sees the same version again may keep what it read before. An absent item has a version too
// (the same one each time it is absent, for some back ends).
struct KeychainItemVersion {
  std::array<uint64_t, 4> stamp{};
  bool operator==(const KeychainItemVersion&) const = default;
};

// Generic-password items addressed by (service, account), with the Keychain's semantics: `add`
// fails with kKeychainDuplicateItem when the item exists, `update` and `remove` fail with
// kKeychainItemNotFound when it does not. Implementations are safe to call from many threads, and
// the file-backed one from many processes. Failures are statuses, never exceptions.
class Keychain {
 public:
  virtual ~Keychain() = default;

  virtual KeychainReadResult read(std::string_view service, std::string_view account) = 0;
  virtual KeychainStatus add(std::string_view service, std::string_view account, ByteView data) = 0;
  virtual KeychainStatus update(std::string_view service, std::string_view account,
                                ByteView data) = 0;
  virtual KeychainStatus remove(std::string_view service, std::string_view account) = 0;
  // The item's current version, much cheaper than reading it; nothing when the back end cannot
  // tell, and the caller reads the item.
  virtual std::optional<KeychainItemVersion> version(std::string_view /*service*/,
                                                     std::string_view /*account*/) {
    return std::nullopt;
  }
};

}  // namespace quorvane
