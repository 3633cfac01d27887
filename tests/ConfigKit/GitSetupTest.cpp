#include <gtest/gtest.h>

#include "ConfigKit/ConfigKitError.h"
#include "ConfigKit/GitConfigBefore.h"
#include "ConfigKit/GitSigningSetup.h"

namespace quorvane {
namespace {

constexpr const char* kBlob = "AAAAC3NzaC1lZDI1NTE5AAAAIGVhc3lfdGVzdGluZ19rZXlfb2ZfMzJfYnl0ZXM=";

GitSigningSetup setupFor(std::string line, bool byDefault) {
  return {std::move(line), "/usr/bin/quorvane-sign", "/home/me/signers", byDefault};
}

struct KeyLineCase {
  const char* name;
  std::string line;
};

class GitSigningKeyLines : public ::testing::TestWithParam<KeyLineCase> {};

// Every spelling of the same key gives the same two outputs: the type, one space, the blob.
TEST_P(GitSigningKeyLines, KeepOnlyTypeAndBlobWithOneSpace) {
  const GitSigningSetup setup = setupFor(GetParam().line, false);
  EXPECT_EQ(setup.signingKeyValue(), std::string("key::ssh-ed25519 ") + kBlob);
  EXPECT_EQ(setup.allowedSignersLine("me@example.com"),
            std::string("me@example.com namespaces=\"git\" ssh-ed25519 ") + kBlob);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, GitSigningKeyLines,
    ::testing::Values(KeyLineCase{"withComment", std::string("ssh-ed25519 ") + kBlob + " laptop"},
                      KeyLineCase{"twoSpaces", std::string("ssh-ed25519  ") + kBlob},
                      KeyLineCase{"leadingSpace", std::string(" ssh-ed25519 ") + kBlob + " a b"}),
    [](const auto& param) { return std::string(param.param.name); });

TEST(GitSigningSetup, SettingsInOrderWithSwitchesOnlyWhenSigningByDefault) {
  const std::string line = std::string("ssh-ed25519 ") + kBlob + " laptop";
  std::vector<GitSetting> base = {{"gpg.format", "ssh"},
                                  {"user.signingkey", std::string("key::ssh-ed25519 ") + kBlob},
                                  {"gpg.ssh.program", "/usr/bin/quorvane-sign"},
                                  {"gpg.ssh.allowedSignersFile", "/home/me/signers"}};
  EXPECT_EQ(setupFor(line, false).settings(), base);
  base.push_back({"commit.gpgsign", "true"});
  base.push_back({"tag.gpgsign", "true"});
  EXPECT_EQ(setupFor(line, true).settings(), base);
}

TEST(GitSigningSetup, RejectsLinesWithoutBlobAndPrincipalsTheFileCannotCarry) {
  for (const char* line : {"", "ssh-ed25519", "  ssh-ed25519  "})
    EXPECT_THROW(setupFor(line, false).signingKeyValue(), ConfigKitError) << line;
  const GitSigningSetup setup = setupFor(std::string("ssh-ed25519 ") + kBlob, false);
  for (const char* principal : {"", "a b", "a\"b", "a\nb"})
    EXPECT_THROW(setup.allowedSignersLine(principal), ConfigKitError) << principal;
}

TEST(GitConfigBefore, RoundTripsAndKeepsTheFirstSavedValues) {
  GitConfigBefore before;
  before.remember({"global", Date{1000}, {{"gpg.format", {"openpgp"}}, {"user.signingkey", {}}}});
  // A second setup sees Quorvane's own values; they must not replace the saved ones.
  before.remember(
      {"global", Date{2000}, {{"gpg.format", {"ssh"}}, {"commit.gpgsign", {"a", "b"}}}});
  before.remember({"/repo", Date{3000}, {{"gpg.format", {}}}});
  ASSERT_EQ(before.records.size(), 2u);
  EXPECT_EQ(
      before.find("global")->settings,
      (std::vector<GitSavedSetting>{
          {"gpg.format", {"openpgp"}}, {"user.signingkey", {}}, {"commit.gpgsign", {"a", "b"}}}));
  EXPECT_EQ(GitConfigBefore::fromJSON(before.toJSON().dump()), before);
  before.forget("global");
  EXPECT_EQ(before.find("global"), nullptr);
  EXPECT_NE(before.find("/repo"), nullptr);
}

TEST(GitConfigBefore, RejectsDamagedRecords) {
  const std::string good = R"({"savedAt":"2026-01-01T00:00:00Z","scope":"global","settings":[]})";
  for (
      const std::string& text : {
          std::string("not json"),
          std::string("{}"),
          std::string(R"({"records":{}})"),
          std::string(R"({"records":[{"scope":"global","settings":[]}]})"),
          std::string(
              R"({"records":[{"savedAt":"2026-01-01T00:00:00Z","scope":"rel/path","settings":[]}]})"),
          std::string(R"({"records":[)") + good + "," + good + "]}",
          std::string(
              R"({"records":[{"savedAt":"2026-01-01T00:00:00Z","scope":"global","settings":[{"key":"","values":[]}]}]})"),
          std::string(
              R"({"records":[{"savedAt":"2026-01-01T00:00:00Z","scope":"global","settings":[{"key":"a","values":[1]}]}]})"),
          std::string(
              R"({"records":[{"savedAt":"2026-01-01T00:00:00Z","scope":"global","settings":[{"key":"a","values":[]},{"key":"a","values":[]}]}]})"),
      })
    EXPECT_THROW(GitConfigBefore::fromJSON(text), DecodingError) << text;
  EXPECT_NO_THROW(GitConfigBefore::fromJSON(std::string(R"({"records":[)") + good + "]}"));
}

}  // namespace
}  // namespace quorvane
