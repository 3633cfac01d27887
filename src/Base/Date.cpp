#include "Base/Date.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

namespace quorvane {

namespace {

// Days between 1970-01-01 and the given proleptic Gregorian date (Howard Hinnant's algorithm).
int64_t daysFromCivil(int64_t year, int64_t month, int64_t day) {
  year -= month <= 2;
  int64_t era = (year >= 0 ? year : year - 399) / 400;
  int64_t yearOfEra = year - era * 400;
  int64_t dayOfYear = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  int64_t dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
  return era * 146097 + dayOfEra - 719468;
}

struct CivilDate {
  int64_t year, month, day;
};

CivilDate civilFromDays(int64_t days) {
  days += 719468;
  int64_t era = (days >= 0 ? days : days - 146096) / 146097;
  int64_t dayOfEra = days - era * 146097;
  int64_t yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
  int64_t dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
  int64_t monthIndex = (5 * dayOfYear + 2) / 153;
  int64_t day = dayOfYear - (153 * monthIndex + 2) / 5 + 1;
  int64_t month = monthIndex + (monthIndex < 10 ? 3 : -9);
  return {yearOfEra + era * 400 + (month <= 2), month, day};
}

bool isLeapYear(int64_t year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysInMonth(int64_t year, int64_t month) {
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

// Reads exactly `width` decimal digits at `position`.
std::optional<int> readDigits(std::string_view text, size_t position, size_t width) {
  if (position + width > text.size()) return std::nullopt;
  int value = 0;
  for (size_t i = position; i < position + width; ++i) {
    if (text[i] < '0' || text[i] > '9') return std::nullopt;
    value = value * 10 + (text[i] - '0');
  }
  return value;
}

}  // namespace

std::string Date::iso8601() const {
  double clamped = std::isnan(secondsSince1970)
                       ? 0
                       : std::clamp(std::floor(secondsSince1970), kEarliestSeconds, kLatestSeconds);
  int64_t whole = static_cast<int64_t>(clamped);
  int64_t days = whole >= 0 ? whole / 86400 : (whole - 86399) / 86400;
  int64_t secondOfDay = whole - days * 86400;
  CivilDate civil = civilFromDays(days);
  char buffer[128];
  std::snprintf(buffer, sizeof buffer, "%04lld-%02lld-%02lldT%02lld:%02lld:%02lldZ",
                static_cast<long long>(civil.year), static_cast<long long>(civil.month),
                static_cast<long long>(civil.day), static_cast<long long>(secondOfDay / 3600),
                static_cast<long long>(secondOfDay / 60 % 60),
                static_cast<long long>(secondOfDay % 60));
  return buffer;
}

std::optional<Date> Date::parseISO8601(std::string_view text) {
  // Fixed layout: YYYY-MM-DDTHH:MM:SS then a zone.
  auto year = readDigits(text, 0, 4), month = readDigits(text, 5, 2), day = readDigits(text, 8, 2);
  auto hour = readDigits(text, 11, 2), minute = readDigits(text, 14, 2);
  auto second = readDigits(text, 17, 2);
  if (!year || !month || !day || !hour || !minute || !second) return std::nullopt;
  if (text[4] != '-' || text[7] != '-' || text[10] != 'T' || text[13] != ':' || text[16] != ':')
    return std::nullopt;
  if (*month < 1 || *month > 12 || *day < 1 || *day > daysInMonth(*year, *month) || *hour > 23 ||
      *minute > 59 || *second > 59)
    return std::nullopt;

  std::string_view zone = text.substr(19);
  int64_t offsetSeconds = 0;
  if (zone != "Z") {
    if (zone.size() != 6 || (zone[0] != '+' && zone[0] != '-') || zone[3] != ':')
      return std::nullopt;
    auto offsetHours = readDigits(zone, 1, 2), offsetMinutes = readDigits(zone, 4, 2);
    if (!offsetHours || !offsetMinutes || *offsetHours > 23 || *offsetMinutes > 59)
      return std::nullopt;
    offsetSeconds = (*offsetHours * 3600 + *offsetMinutes * 60) * (zone[0] == '+' ? 1 : -1);
  }
  int64_t seconds = daysFromCivil(*year, *month, *day) * 86400 + *hour * 3600 + *minute * 60 +
                    *second - offsetSeconds;
  if (seconds < kEarliestSeconds || seconds > kLatestSeconds) return std::nullopt;
  return Date{static_cast<double>(seconds)};
}

}  // namespace quorvane
