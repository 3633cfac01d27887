#pragma once

#include <cstddef>
#include <string>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "Platform/KeychainItemError.h"

namespace quorvane {

// One generic-password item as the file keychain stores it. The file names its own service and
// account, so that a file copied or renamed onto another item's name is noticed on reading.
//
// Layout (integers big-endian):
//   8 bytes   "QVKCITEM"
//   uint8     version, 1
//   uint32    length of the service, then its bytes     (at most kNameLimit)
//   uint32    length of the account, then its bytes     (at most kNameLimit)
//   uint32    length of the data, then its bytes        (at most kDataLimit)
//   nothing after the data
struct KeychainItemFile {
  static constexpr size_t kNameLimit = 4096;
  static constexpr size_t kDataLimit = 1 << 20;
  // The largest valid file.
  static constexpr size_t kFileLimit = 8 + 1 + 3 * 4 + 2 * kNameLimit + kDataLimit;

  std::string service;
  std::string account;
  SecureBytes data;

  // The file's bytes. REQUIRES: the fields are within their limits.
  SecureBytes encode() const;

  // Reads a file's bytes; throws KeychainItemError for anything that is not exactly one item.
  // Lengths are checked against the limits before anything is copied.
  static KeychainItemFile decode(ByteView bytes);

  friend bool operator==(const KeychainItemFile&, const KeychainItemFile&) = default;
};

}  // namespace quorvane
