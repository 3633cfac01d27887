#pragma once

#include <cstdint>
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
};

}  // namespace quorvane
