#pragma once

#include <array>
#include <compare>
#include <optional>

namespace quorvane {

// The lengths of time that an approval may cover: 5, 15 and 30 minutes, 1, 12 and 24 hours.
// There are no other values. Choices are ordered by their length; as std::optional's own ordering
// gives, an absent choice ranks below every present one.
class WindowChoice {
 public:
  // The choice of exactly `seconds`; nothing for any other number.
  static std::optional<WindowChoice> fromSeconds(double seconds);

  // The six choices, shortest first.
  static const std::array<WindowChoice, 6>& allCases();

  // The longest choice, 24 hours.
  static WindowChoice maximum();

  double seconds() const { return seconds_; }

  friend bool operator==(const WindowChoice&, const WindowChoice&) = default;
  friend auto operator<=>(const WindowChoice&, const WindowChoice&) = default;

 private:
  constexpr explicit WindowChoice(int seconds) : seconds_(seconds) {}
  int seconds_;
};

}  // namespace quorvane
