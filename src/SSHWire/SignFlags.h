#pragma once

#include <cstdint>

namespace quorvane {

// The flags word of a sign request. Only the two RSA SHA-2 bits mean anything here; other bits are
// kept in `rawValue` and ignored.
struct SignFlags {
  uint32_t rawValue = 0;

  static const SignFlags rsaSHA2_256;
  static const SignFlags rsaSHA2_512;

  constexpr bool contains(SignFlags member) const {
    return (rawValue & member.rawValue) == member.rawValue;
  }

  friend bool operator==(const SignFlags&, const SignFlags&) = default;
};

inline constexpr SignFlags SignFlags::rsaSHA2_256{2};
inline constexpr SignFlags SignFlags::rsaSHA2_512{4};

}  // namespace quorvane
