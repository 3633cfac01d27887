#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// A 128-bit universally unique identifier (RFC 4122).
struct UUID {
  std::array<uint8_t, 16> bytes{};

  // A new random (version 4) identifier.
  static UUID random();

  // Reads the canonical 8-4-4-4-12 hexadecimal form in either case; nothing for any other text.
  static std::optional<UUID> parse(std::string_view text);

  // The canonical form in upper case, "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
  std::string uuidString() const;

  friend bool operator==(const UUID&, const UUID&) = default;
  friend auto operator<=>(const UUID&, const UUID&) = default;
};

}  // namespace quorvane
