#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "Base/Date.h"

namespace quorvane {
namespace {

struct DateVector {
  double seconds;
  std::string text;
};

// Values checked with `date -u -d @SECONDS +%FT%TZ`.
const DateVector kDates[] = {
    {0, "1970-01-01T00:00:00Z"},          {-1, "1969-12-31T23:59:59Z"},
    {951782400, "2000-02-29T00:00:00Z"},  {1795307100, "2026-11-22T00:25:00Z"},
    {4102444799, "2099-12-31T23:59:59Z"}, {253402300799, "9999-12-31T23:59:59Z"},
};

class DateISO8601 : public ::testing::TestWithParam<DateVector> {};

TEST_P(DateISO8601, FormatsAndParses) {
  const DateVector& vector = GetParam();
  EXPECT_EQ(Date{vector.seconds}.iso8601(), vector.text);
  EXPECT_EQ(Date::parseISO8601(vector.text), Date{vector.seconds});
}

INSTANTIATE_TEST_SUITE_P(Known, DateISO8601, ::testing::ValuesIn(kDates));

TEST(Date, FractionsAreDroppedTowardsThePast) {
  EXPECT_EQ(Date{1.9}.iso8601(), "1970-01-01T00:00:01Z");
  EXPECT_EQ(Date{-0.5}.iso8601(), "1969-12-31T23:59:59Z");
}

TEST(Date, DatesBeyondFourDigitYearsAreWrittenAsTheNearestEnd) {
  EXPECT_EQ(Date{1e300}.iso8601(), "9999-12-31T23:59:59Z");
  EXPECT_EQ(Date{-1e300}.iso8601(), "0001-01-01T00:00:00Z");
  EXPECT_EQ(Date{std::numeric_limits<double>::infinity()}.iso8601(), "9999-12-31T23:59:59Z");
  EXPECT_EQ(Date{std::nan("")}.iso8601(), "1970-01-01T00:00:00Z");
  EXPECT_EQ(Date::parseISO8601("0001-01-01T00:00:00Z"), Date{Date::kEarliestSeconds});
}

TEST(Date, OffsetsAreConvertedToUTC) {
  EXPECT_EQ(Date::parseISO8601("2026-11-22T01:25:00+01:00"), Date{1795307100});
  EXPECT_EQ(Date::parseISO8601("2026-11-21T19:55:00-04:30"), Date{1795307100});
}

class DateRejects : public ::testing::TestWithParam<std::string> {};

TEST_P(DateRejects, MalformedText) { EXPECT_FALSE(Date::parseISO8601(GetParam()).has_value()); }

INSTANTIATE_TEST_SUITE_P(Malformed, DateRejects,
                         ::testing::Values("", "2026-11-21", "2026-11-21T00:25:00",
                                           "2026-11-21 00:25:00Z", "2026-11-21T00:25:00.5Z",
                                           "2023-02-29T00:00:00Z", "2026-13-01T00:00:00Z",
                                           "2026-11-21T24:00:00Z", "2026-11-21T00:60:00Z",
                                           "2026-11-21T00:25:00+0100", "2026-11-21T00:25:00Zjunk",
                                           "2026-1a-21T00:25:00Z", "0000-02-22T01:25:08-01:00",
                                           "9999-12-31T23:59:59-01:00"));

TEST(Date, OrdersAndMeasuresSpans) {
  Date start{1000};
  EXPECT_LT(start, start + 0.5);
  EXPECT_EQ((start + 600).secondsSince(start), 600);
  EXPECT_EQ((start - 1).secondsSince(start), -1);
}

}  // namespace
}  // namespace quorvane
