#pragma once

#include <compare>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// A point in time: seconds since 1970-01-01 00:00:00 UTC. Time spans are plain doubles (seconds).
struct Date {
  // The dates that have a four-digit ISO 8601 year: 0001-01-01T00:00:00Z to 9999-12-31T23:59:59Z.
  static constexpr double kEarliestSeconds = -62135596800.0;
  static constexpr double kLatestSeconds = 253402300799.0;

  double secondsSince1970 = 0;

  Date operator+(double seconds) const { return Date{secondsSince1970 + seconds}; }
  Date operator-(double seconds) const { return Date{secondsSince1970 - seconds}; }
  // The span from `earlier` to this date, in seconds (negative when `earlier` is later).
  double secondsSince(Date earlier) const { return secondsSince1970 - earlier.secondsSince1970; }

  friend bool operator==(const Date&, const Date&) = default;
  friend auto operator<=>(const Date&, const Date&) = default;

  // ISO 8601 in UTC with whole seconds, "2026-11-21T09:05:00Z"; a fraction of a second is dropped
  // (rounded towards the past). Dates outside the four-digit years are written as the nearest end
  // of that range (and not-a-number as 1970).
  std::string iso8601() const;

  // Reads "YYYY-MM-DDTHH:MM:SS" followed by "Z" or an offset "+HH:MM" / "-HH:MM". Whole seconds
  // only; nothing for any other text, an impossible date or time, or a moment outside the
  // four-digit years (which could not be written back).
  static std::optional<Date> parseISO8601(std::string_view text);
};

}  // namespace quorvane
