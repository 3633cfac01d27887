#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string_view>

#include "Base/Bytes.h"
#include "Base/SecureBytes.h"
#include "Crypto/DigestContext.h"
#include "Crypto/HMACContext.h"

namespace quorvane {

using ChainHash = std::array<uint8_t, 32>;

// The hash of one log row: over the row's prev bytes followed by the UTF-8 bytes of its JSON text,
// HMAC-SHA-256 under the chain key when there is one, else SHA-256. Not safe to share between
// threads.
class ChainHasher {
 public:
  explicit ChainHasher(const std::optional<SecureBytes>& chainKey);

  ChainHash hash(ByteView prev, std::string_view json);

 private:
  std::unique_ptr<crypto::HMACContext> mac_;
  std::unique_ptr<crypto::DigestContext> digest_;
};

}  // namespace quorvane
