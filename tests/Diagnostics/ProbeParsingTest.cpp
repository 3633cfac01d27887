#include <gtest/gtest.h>

#include "Diagnostics/AgentUnit.h"
#include "Diagnostics/ProbeParsing.h"
#include "SSHWire/WireWriter.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

struct HostsCase {
  std::string name;
  const char* config;
  std::vector<std::string> hosts;
};

class NamedHosts : public ::testing::TestWithParam<HostsCase> {};

TEST_P(NamedHosts, AreTheHostPatternsWithoutWildcards) {
  EXPECT_EQ(namedHosts(GetParam().config), GetParam().hosts);
}

INSTANTIATE_TEST_SUITE_P(
    ProbeParsing, NamedHosts,
    ::testing::Values(HostsCase{"Empty", "", {}},
                      HostsCase{"SeveralBlocks", "Host a b\n  User x\nHost b c\n", {"a", "b", "c"}},
                      HostsCase{"CaseEqualsAndTabs", "  HOST=a\r\n\thost\tb\n", {"a", "b"}},
                      HostsCase{"Wildcards", "Host *.corp !bad ?x a*\nHost *\n", {}},
                      HostsCase{"Quoted", "Host \"with space\" plain\n", {"with space", "plain"}},
                      HostsCase{"UnbalancedQuote", "Host \"unbalanced\nHost ok\n", {"ok"}},
                      HostsCase{"OtherKeywords", "Hostname a\nMatch host b\n# Host c\nHost\n", {}},
                      HostsCase{"CommaIsNotASeparator", "Host a,b\n", {}}),
    [](const ::testing::TestParamInfo<HostsCase>& tested) { return tested.param.name; });

TEST(ProbeParsing, ReadsIdentityAgentAndManagerEnvironmentLines) {
  EXPECT_EQ(identityAgentLine("user x\nidentityagent /a b/c.sock\nidentityagent /d\n"),
            "/a b/c.sock");
  EXPECT_EQ(identityAgentLine("identityfile ~/.ssh/id\n"), std::nullopt);
  const char* environment =
      "HOME=/h\nSSH_AUTH_SOCKET=/no\nSSH_AUTH_SOCK=/run/a.sock\n"
      "QUOTED=$'/tmp/a b\\'\\\\c'\nEMPTY=\n";
  EXPECT_EQ(environmentValue(environment, "SSH_AUTH_SOCK"), "/run/a.sock");
  EXPECT_EQ(environmentValue(environment, "QUOTED"), "/tmp/a b'\\c");
  EXPECT_EQ(environmentValue(environment, "EMPTY"), "");
  EXPECT_EQ(environmentValue(environment, "MISSING"), std::nullopt);
}

Bytes identitiesAnswer(uint32_t count, size_t pairs) {
  WireWriter writer;
  writer.writeByte(12);
  writer.writeUInt32(count);
  for (size_t i = 0; i < pairs; ++i) {
    writer.writeString(Bytes{1, 2, 3});
    writer.writeString(bytesOf("comment"));
  }
  return std::move(writer).take();
}

TEST(ProbeParsing, CountsKeysOnlyInAWellFormedIdentitiesAnswer) {
  EXPECT_EQ(identitiesAnswerCount(identitiesAnswer(0, 0)), 0u);
  Bytes two = identitiesAnswer(2, 2);
  EXPECT_EQ(identitiesAnswerCount(two), 2u);
  for (size_t length = 0; length < two.size(); ++length)
    EXPECT_EQ(identitiesAnswerCount(ByteView(two.data(), length)), std::nullopt) << length;
  Bytes longer = two;
  longer.push_back(0);
  EXPECT_EQ(identitiesAnswerCount(longer), std::nullopt);
  EXPECT_EQ(identitiesAnswerCount(identitiesAnswer(0xFFFFFFFF, 1)), std::nullopt);
  EXPECT_EQ(identitiesAnswerCount(Bytes{5}), std::nullopt);  // failure
}

TEST(ProbeParsing, ReadsHTTPDatesStrictly) {
  EXPECT_EQ(parseHTTPDate("Sun, 06 Nov 1994 08:49:37 GMT"), Date{784111777});
  EXPECT_EQ(parseHTTPDate("Mon, 29 Feb 2016 00:00:00 UTC"), Date{1456704000});
  for (const char* bad : {"", "Sun, 06 Nov 1994 08:49:37 CET", "Sun, 6 Nov 1994 08:49:37 GMT",
                          "Sun, 06 Nov 1994 08:49:37 GMT ", "Xyz, 06 Nov 1994 08:49:37 GMT",
                          "Sun, 06 Nox 1994 08:49:37 GMT", "Sun, 31 Feb 2015 08:49:37 GMT",
                          "Sun, 06 Nov 1994 25:49:37 GMT", "Sun, 06 Nov 19+4 08:49:37 GMT",
                          "Sunday, 06-Nov-94 08:49:37 GMT"})
    EXPECT_EQ(parseHTTPDate(bad), std::nullopt) << bad;
}

// The unit that `cmake --install` puts beside the programs is the one `quorvane agent install`
// writes for the same path.
TEST(AgentUnit, TheShippedUnitIsTheOneInstalledForItsPath) {
  std::string shipped = testing::readFile(std::filesystem::path(QUORVANE_DIST_DIR) / "systemd" /
                                          (std::string(kAgentUnitName) + ".in"));
  const std::string placeholder = "@QUORVANE_INSTALLED_AGENT@";
  shipped.replace(shipped.find(placeholder), placeholder.size(), "/usr/local/bin/quorvane-agent");
  EXPECT_EQ(agentUnitText("/usr/local/bin/quorvane-agent"), shipped);
  EXPECT_TRUE(unitSetsManagerEnvironment(shipped));
  EXPECT_FALSE(unitSetsManagerEnvironment("[Service]\nExecStart=/x\n"));
}

}  // namespace
}  // namespace quorvane
