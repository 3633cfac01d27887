#include <gtest/gtest.h>

#include "AgentEngine/KnownHosts.h"
#include "Base/Base64.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::runCommand;
using testing::TemporaryDirectory;

// Host keys made by ssh-keygen, as "type base64" public key lines.
struct HostKeys : ::testing::Test {
  static void SetUpTestSuite() {
    for (auto* key : {&first, &second}) {
      std::filesystem::path file = directory->path() / ("key" + std::to_string(key == &second));
      ASSERT_EQ(runCommand({"ssh-keygen", "-q", "-t", "ed25519", "-N", "", "-f", file}).exitCode,
                0);
      std::string line = testing::readFile(file.string() + ".pub");
      *key = line.substr(0, line.rfind(' '));
    }
  }
  static Bytes blob(const std::string& line) { return *base64Decode(line.substr(12)); }

  static inline std::unique_ptr<TemporaryDirectory> directory =
      std::make_unique<TemporaryDirectory>();
  static inline std::string first, second;
};

TEST_F(HostKeys, ListsAndChecksPlainNames) {
  TemporaryDirectory home;
  const auto file = home.path() / "known_hosts";
  testing::writeFile(file,
                     "# comment\n"
                     "\n"
                     "github.com,140.82.1.1 " +
                         first +
                         "\n"
                         "[build.example]:2222 " +
                         first +
                         " port entry\n"
                         "*.corp,!evil.corp " +
                         second +
                         "\n"
                         "@revoked revoked.example " +
                         first +
                         "\n"
                         "broken.example ssh-ed25519 %%%\n"
                         "old.example " +
                         second + "\r\n");
  KnownHostsResolver resolver({file, home.path() / "missing"});
  EXPECT_EQ(resolver.names(blob(first)),
            (std::vector<std::string>{"github.com", "140.82.1.1", "[build.example]:2222"}));
  EXPECT_EQ(resolver.names(blob(second)), (std::vector<std::string>{"old.example"}));

  EXPECT_EQ(resolver.check("GitHub.com", blob(first)), HostNameMatch::recorded);
  EXPECT_EQ(resolver.check("[build.example]:2222", blob(first)), HostNameMatch::recorded);
  EXPECT_EQ(resolver.check("build.example", blob(first)), HostNameMatch::notRecorded)
      << "another port is another name";
  EXPECT_EQ(resolver.check("db.corp", blob(second)), HostNameMatch::recorded);
  EXPECT_EQ(resolver.check("evil.corp", blob(second)), HostNameMatch::notRecorded);
  EXPECT_EQ(resolver.check("github.com", blob(second)), HostNameMatch::otherKeyOnly);
  EXPECT_EQ(resolver.check("revoked.example", blob(first)), HostNameMatch::notRecorded);
  EXPECT_EQ(resolver.check("broken.example", blob(first)), HostNameMatch::notRecorded);
}

TEST_F(HostKeys, ChecksNamesHashedBySSHKeygenAndNoticesChanges) {
  TemporaryDirectory home;
  const auto file = home.path() / "known_hosts";
  testing::writeFile(file, "gitlab.example " + first + "\n");
  KnownHostsResolver resolver({file});
  EXPECT_EQ(resolver.names(blob(first)), (std::vector<std::string>{"gitlab.example"}));

  ASSERT_EQ(runCommand({"ssh-keygen", "-q", "-H", "-f", file.string()}).exitCode, 0);
  ASSERT_TRUE(testing::readFile(file).starts_with("|1|"));
  EXPECT_TRUE(resolver.names(blob(first)).empty()) << "hashed names cannot be listed";
  EXPECT_EQ(resolver.check("gitlab.example", blob(first)), HostNameMatch::recorded);
  EXPECT_EQ(resolver.check("gitlab.example", blob(second)), HostNameMatch::otherKeyOnly);
  EXPECT_EQ(resolver.check("other.example", blob(first)), HostNameMatch::notRecorded);
}

}  // namespace
}  // namespace quorvane
