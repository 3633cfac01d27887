#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "ProcessContext/ProcessContextError.h"
#include "ProcessContext/ProcessRecord.h"

namespace quorvane {
namespace {

// A record as the kernel writes it, fields 3 to 52.
std::string statLine(std::string_view head, std::string_view startTime = "123456") {
  return std::string(head) + " 4321 4321 34816 4321 4194560 1297 0 0 0 2 1 0 0 20 0 1 0 " +
         std::string(startTime) +
         " 9023488 1289 18446744073709551615 1 1 0 0 0 0 65536 3686404 1266761467 0 0 0 17 1 0 0 "
         "0 0 0 0 0 0 0 0 0 0 0\n";
}

struct StatCase {
  std::string name;
  std::string text;
  std::optional<ProcessStat> expected;  // nothing: peerGone
};

void PrintTo(const StatCase& c, std::ostream* out) { *out << c.name; }

class ParseStat : public ::testing::TestWithParam<StatCase> {};

TEST_P(ParseStat, ReadsOrRejects) {
  try {
    ProcessStat stat = parseProcessStat(GetParam().text);
    EXPECT_EQ(std::optional(stat), GetParam().expected);
  } catch (const ProcessContextError& error) {
    EXPECT_FALSE(GetParam().expected) << error.what();
    EXPECT_EQ(error, ProcessContextError::peerGone());
  }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ParseStat,
    ::testing::Values(
        StatCase{"Plain", statLine("4321 (bash) S 1"), ProcessStat{4321, "bash", 'S', 1, 123456}},
        StatCase{"NameWithParenthesesAndSpaces", statLine("77 (a) (b c) S 76"),
                 ProcessStat{77, "a) (b c", 'S', 76, 123456}},
        StatCase{"NameLooksLikeFields", statLine("77 (x) R 1 2 3) Z 0"),
                 ProcessStat{77, "x) R 1 2 3", 'Z', 0, 123456}},
        StatCase{"WithoutNewline",
                 statLine("8 (k) S 2").substr(0, statLine("8 (k) S 2").size() - 1),
                 ProcessStat{8, "k", 'S', 2, 123456}},
        StatCase{"LargestStartTime", statLine("8 (k) S 2", "18446744073709551615"),
                 ProcessStat{8, "k", 'S', 2, 18446744073709551615u}},
        StatCase{"Empty", "", std::nullopt}, StatCase{"NoName", "4321 bash S 1 2 3", std::nullopt},
        StatCase{"Unclosed", "4321 (bash S 1 2 3", std::nullopt},
        StatCase{"PidNotNumber", statLine("x1 (bash) S 1"), std::nullopt},
        StatCase{"PidZero", statLine("0 (bash) S 1"), std::nullopt},
        StatCase{"PidNegative", statLine("-5 (bash) S 1"), std::nullopt},
        StatCase{"PidTooLarge", statLine("2147483648 (bash) S 1"), std::nullopt},
        StatCase{"TwoCharacterState", statLine("1 (b) SS 1"), std::nullopt},
        StatCase{"ParentNotNumber", statLine("1 (b) S x"), std::nullopt},
        StatCase{"DoubleSpace", statLine("1 (b) S  1"), std::nullopt},
        StatCase{"StartTimeTooLarge", statLine("1 (b) S 1", "18446744073709551616"), std::nullopt},
        StatCase{"TooFewFields", "1 (b) S 1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 17 18",
                 std::nullopt}));

struct AreaCase {
  std::string name;
  std::string area;
  size_t keep;
  std::vector<std::string> leading;
  size_t count;
};

void PrintTo(const AreaCase& c, std::ostream* out) { *out << c.name; }

class SplitArea : public ::testing::TestWithParam<AreaCase> {};

TEST_P(SplitArea, KeepsTheLeadingArgumentsAndCountsAll) {
  ArgumentArea area = splitArgumentArea(GetParam().area, GetParam().keep);
  EXPECT_EQ(area.leading, GetParam().leading);
  EXPECT_EQ(area.count, GetParam().count);
}

using namespace std::string_literals;

INSTANTIATE_TEST_SUITE_P(
    Cases, SplitArea,
    ::testing::Values(AreaCase{"Empty", "", 24, {}, 0},
                      AreaCase{"Terminated", "ls\0-l\0"s, 24, {"ls", "-l"}, 2},
                      AreaCase{"EmptyArgument", "a\0\0b\0"s, 24, {"a", "", "b"}, 3},
                      AreaCase{"RewrittenTitle", "sshd: me [priv]", 24, {"sshd: me [priv]"}, 1},
                      AreaCase{"KeepsOnlyLeading", "a\0b\0c\0"s, 1, {"a"}, 3}));

TEST(PidVersion, FoldsTheStartTimeToThirtyTwoBits) {
  EXPECT_EQ(pidVersion(0x12345678u), 0x12345678);
  EXPECT_EQ(pidVersion(0x0000000100000001u), 0);
  EXPECT_EQ(pidVersion(0xFFFFFFFFu), -1);
}

}  // namespace
}  // namespace quorvane
