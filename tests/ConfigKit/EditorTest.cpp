#include <gtest/gtest.h>

#include "ConfigKit/ConfigKitError.h"
#include "ConfigKit/LineDiff.h"
#include "ConfigKit/SSHConfigEditor.h"

namespace quorvane {
namespace {

const std::string kBegin(SSHConfigEditor::kBeginMarker);
const std::string kEnd(SSHConfigEditor::kEndMarker);

SSHConfigEditor editor(std::vector<std::string> excluded = {}) {
  return {"/home/me/.ssh/quorvane/agent.sock", std::move(excluded)};
}

std::string block(const std::string& hostLine = "Host *") {
  return kBegin + "\n" + hostLine + "\n  IdentityAgent /home/me/.ssh/quorvane/agent.sock\n" + kEnd +
         "\n";
}

TEST(SSHConfigEditor, BlockIsExactlyFourLines) {
  EXPECT_EQ(kBegin,
            "# >>> Quorvane >>> (managed by Quorvane; remove with quorvane setup ssh --undo)");
  EXPECT_EQ(editor().managedBlock(), block());
  EXPECT_EQ(editor({"work-alias", "legacy"}).managedBlock(), block("Host * !work-alias !legacy"));
}

// Blocks written by earlier versions name a menu of another platform in their first line; they
// are still found, replaced by the current block and removed.
TEST(SSHConfigEditor, ABlockWithTheEarlierFirstLineIsStillTheManagedBlock) {
  const std::string earlier =
      "# >>> Quorvane >>> (managed by Quorvane; remove with Quorvane \xE2\x86\x92 Setup "
      "\xE2\x86\x92 Undo)\nHost *\n  IdentityAgent /old.sock\n" +
      kEnd + "\n\nHost work\n  User me\n";
  EXPECT_TRUE(SSHConfigEditor::hasManagedBlock(earlier));
  EXPECT_EQ(editor().applying(earlier), block() + "\nHost work\n  User me\n");
  EXPECT_EQ(SSHConfigEditor::removingManagedBlock(earlier), "Host work\n  User me\n");
}

struct ApplyCase {
  const char* name;
  std::string before;
  std::string applied;  // the text after applying
  std::string removed;  // the applied text with the block removed again
};

class ApplyingAndRemoving : public ::testing::TestWithParam<ApplyCase> {};

TEST_P(ApplyingAndRemoving, GivesTheExpectedTexts) {
  const ApplyCase& c = GetParam();
  const std::string applied = editor().applying(c.before);
  EXPECT_EQ(applied, c.applied);
  EXPECT_EQ(editor().applying(applied), applied) << "applying twice equals applying once";
  EXPECT_EQ(SSHConfigEditor::removingManagedBlock(applied), c.removed);
  EXPECT_TRUE(SSHConfigEditor::hasManagedBlock(applied));
}

INSTANTIATE_TEST_SUITE_P(
    Cases, ApplyingAndRemoving,
    ::testing::Values(ApplyCase{"empty", "", block(), ""},
                      ApplyCase{"userLines", "Host x\n  User y\n", block() + "\nHost x\n  User y\n",
                                "Host x\n  User y\n"},
                      ApplyCase{"noFinalNewline", "Host x", block() + "\nHost x", "Host x"},
                      // An older block (other exclusions) is replaced, not doubled.
                      ApplyCase{
                          "replacesOldBlock",
                          kBegin + "\nHost * !old\n  IdentityAgent /old\n" + kEnd + "\n\nHost x\n",
                          block() + "\nHost x\n", "Host x\n"},
                      // A block that a user moved below own lines is taken out there and put first.
                      ApplyCase{"blockInTheMiddle", "Host a\n" + block() + "\nHost b\n",
                                block() + "\nHost a\nHost b\n", "Host a\nHost b\n"},
                      // Begin marker without an end marker: left alone, a fresh block goes on top.
                      ApplyCase{"damagedBlock", kBegin + "\nHost *\n",
                                block() + "\n" + kBegin + "\nHost *\n", kBegin + "\nHost *\n"},
                      // The marker inside a longer line is not a marker.
                      ApplyCase{"markerNotWholeLine", "# see " + kBegin + "\n" + kEnd + "\n",
                                block() + "\n# see " + kBegin + "\n" + kEnd + "\n",
                                "# see " + kBegin + "\n" + kEnd + "\n"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(SSHConfigEditor, RemovingLeavesTextsWithoutACompleteBlockAlone) {
  for (const std::string& text :
       {std::string(), std::string("Host x\n"), kBegin + "\nHost *\n", kEnd + "\n" + kBegin + "\n"})
    EXPECT_EQ(SSHConfigEditor::removingManagedBlock(text), text);
}

TEST(SSHConfigEditor, RejectsHostPatternsAndSocketPathsSSHWouldMisread) {
  for (const char* pattern : {"", "!x", "a b", "a\"b", "a\tb", "a\nb"})
    EXPECT_THROW(SSHConfigEditor::checkHostPattern(pattern), ConfigKitError) << pattern;
  EXPECT_NO_THROW(SSHConfigEditor::checkHostPattern("*.example.com"));

  EXPECT_EQ(SSHConfigEditor::socketPathArgument("/home/me/a.sock"), "/home/me/a.sock");
  EXPECT_EQ(SSHConfigEditor::socketPathArgument("/home/my home/a.sock"),
            "\"/home/my home/a.sock\"");
  EXPECT_EQ(SSHConfigEditor::socketPathArgument("/home/100%/a.sock"), "/home/100%%/a.sock");
  for (const char* path : {"/a\"b", "/${HOME}/a", "/a\nb"})
    EXPECT_THROW(SSHConfigEditor::socketPathArgument(path), ConfigKitError) << path;
}

using Line = LineDiff::Line;

struct DiffCase {
  const char* name;
  std::string before, after;
  std::vector<Line> lines;
};

class LineDiffWalk : public ::testing::TestWithParam<DiffCase> {};

TEST_P(LineDiffWalk, EmitsTheLinesInOrder) {
  EXPECT_EQ(LineDiff::lines(GetParam().before, GetParam().after), GetParam().lines);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, LineDiffWalk,
    ::testing::Values(
        DiffCase{"removalBeforeAddition",
                 "a\nb",
                 "a\nc",
                 {Line::same("a"), Line::removed("b"), Line::added("c")}},
        DiffCase{"emptyTexts", "", "", {Line::same("")}},
        DiffCase{"fromEmpty", "", "x", {Line::removed(""), Line::added("x")}},
        DiffCase{"finalLineFeed", "a\n", "a", {Line::same("a"), Line::removed("")}},
        // The table, not the order of appearance, decides: keeping "b c" beats keeping "a".
        DiffCase{"longerCommonRestWins",
                 "a\nb\nc",
                 "b\nc\na",
                 {Line::removed("a"), Line::same("b"), Line::same("c"), Line::added("a")}},
        DiffCase{"blockOnTop",
                 "Host x\n",
                 "B\n\nHost x\n",
                 {Line::added("B"), Line::added(""), Line::same("Host x"), Line::same("")}},
        DiffCase{"allReplaced",
                 "a\nb",
                 "c\nd",
                 {Line::removed("a"), Line::removed("b"), Line::added("c"), Line::added("d")}}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(LineDiff, RendersWithTwoCharacterPrefixes) {
  EXPECT_EQ(LineDiff::render({Line::same("a"), Line::removed("b"), Line::added("c")}),
            "  a\n- b\n+ c");
  EXPECT_EQ(LineDiff::render({}), "");
}

TEST(LineDiff, RefusesTablesOverTheLimitButNotLongCommonStarts) {
  const std::string many(5000, '\n');
  EXPECT_THROW(LineDiff::lines(many, "x" + many), ConfigKitError);
  EXPECT_EQ(LineDiff::lines(many, many + "x").size(), 5002u);  // 5000 same, one out, one in
}

}  // namespace
}  // namespace quorvane
