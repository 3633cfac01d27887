#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>

#include "AgentState/PromptSetting.h"
#include "KeyStore/FixedSealingKey.h"
#include "Platform/GraphicalSession.h"
#include "Platform/InMemoryKeychain.h"
#include "agent/PromptLauncher.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::eventually;
using testing::readFile;
using testing::TemporaryDirectory;
using testing::writeFile;
using Outcome = PromptLauncher::Outcome;

void writeScript(const std::filesystem::path& path, const std::string& body) {
  writeFile(path, "#!/bin/sh\n" + body);
  ::chmod(path.c_str(), 0700);
}

// Sets an environment variable for one test and puts the old value back.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) old_ = old;
    value ? ::setenv(name, value->c_str(), 1) : ::unsetenv(name);
  }
  ~ScopedVariable() { old_ ? ::setenv(name_, old_->c_str(), 1) : ::unsetenv(name_); }

 private:
  const char* name_;
  std::optional<std::string> old_;
};

// A fake `systemctl` first in PATH that prints the user manager's environment (or fails), and a
// fake dialog that records its environment and arguments and then waits until told to end.
struct LauncherFixture : ::testing::Test {
  TemporaryDirectory folder;
  std::filesystem::path bin = folder.path() / "bin";
  std::filesystem::path dialog = folder.path() / "quorvane-prompt";
  std::filesystem::path record = folder.path() / "dialog-environment";
  std::filesystem::path release = folder.path() / "release";
  ScopedVariable path{"PATH", bin.string() + ":/usr/bin:/bin"};
  ScopedVariable display{"DISPLAY", std::nullopt};
  ScopedVariable wayland{"WAYLAND_DISPLAY", std::nullopt};
  ScopedVariable authority{"XAUTHORITY", std::nullopt};
  ScopedVariable bus{"DBUS_SESSION_BUS_ADDRESS", std::nullopt};
  SupportState support{std::make_shared<InMemoryKeychain>(),
                       std::make_shared<FixedSealingKey>(SecureBytes(Bytes(32, 7))), folder.path()};
  int frontends = 0;

  LauncherFixture() {
    std::filesystem::create_directories(bin);
    // Bounded: the dialog ends by itself after 10 s if a test forgets to release it.
    writeScript(dialog, "env > '" + record.string() + ".tmp'\necho \"ARGS $*\" >> '" +
                            record.string() + ".tmp'\nmv '" + record.string() + ".tmp' '" +
                            record.string() + "'\nfor i in $(seq 100); do [ -e '" +
                            release.string() + "' ] && exit 0; sleep 0.1; done\n");
  }
  ~LauncherFixture() override {
    writeFile(release, "");
    eventually([&] { return !launcher.runningDialog(); });
  }

  void managerSays(const std::string& output, int exitCode = 0) {
    writeScript(bin / "systemctl", "[ \"$1 $2\" = '--user show-environment' ] || exit 9\nprintf '" +
                                       output + "'\nexit " + std::to_string(exitCode) + "\n");
  }

  PromptLauncher launcher{{dialog,
                           {"--control-socket", "/run/test/control.sock"},
                           [this] { return promptStartsAutomatically(support); },
                           [this] { return frontends; }}};

  // The dialog's recorded environment, once it has written it.
  std::string dialogRecord() {
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(record); }));
    return std::filesystem::exists(record) ? readFile(record) : "";
  }
};

TEST_F(LauncherFixture, OpensInTheSessionTheUserManagerKnows) {
  managerSays(
      "HOME=/home/you\\nDISPLAY=:42\\nXAUTHORITY=/run/user/1000/xauth_abc\\n"
      "DBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1000/bus\\nLANG=C.UTF-8\\n");
  ScopedVariable own{"DISPLAY", ":7"};  // the agent's own display is older than the manager's
  EXPECT_EQ(launcher.requestWaiting(), Outcome::started);
  const std::string seen = dialogRecord();
  EXPECT_NE(seen.find("\nDISPLAY=:42\n"), std::string::npos) << seen;
  EXPECT_NE(seen.find("\nXAUTHORITY=/run/user/1000/xauth_abc\n"), std::string::npos);
  EXPECT_NE(seen.find("\nDBUS_SESSION_BUS_ADDRESS=unix:path=/run/user/1000/bus\n"),
            std::string::npos);
  EXPECT_EQ(seen.find("WAYLAND_DISPLAY"), std::string::npos);
  EXPECT_NE(seen.find("ARGS --control-socket /run/test/control.sock"), std::string::npos);

  // One dialog at a time: it shows every waiting request.
  EXPECT_EQ(launcher.requestWaiting(), Outcome::alreadyRunning);
  writeFile(release, "");
  ASSERT_TRUE(eventually([&] { return !launcher.runningDialog(); }));
  std::filesystem::remove(release);
  EXPECT_EQ(launcher.requestWaiting(), Outcome::started) << "a later request opens it again";
}

TEST_F(LauncherFixture, FallsBackToItsOwnEnvironmentWhenTheManagerCannotTell) {
  managerSays("", 1);
  ScopedVariable own{"WAYLAND_DISPLAY", "wayland-0"};
  EXPECT_EQ(launcher.requestWaiting(), Outcome::started);
  EXPECT_NE(dialogRecord().find("\nWAYLAND_DISPLAY=wayland-0\n"), std::string::npos);
}

TEST_F(LauncherFixture, StartsNothingWithoutAGraphicalSession) {
  managerSays("HOME=/home/you\\nXAUTHORITY=/home/you/.Xauthority\\n");
  EXPECT_EQ(launcher.requestWaiting(), Outcome::noSession);
  std::filesystem::remove(bin / "systemctl");  // no user manager at all (a container)
  EXPECT_EQ(launcher.requestWaiting(), Outcome::noSession);
  EXPECT_FALSE(launcher.runningDialog());
}

TEST_F(LauncherFixture, StartsNothingWhileAFrontendIsConnectedOrWhenTurnedOff) {
  managerSays("DISPLAY=:42\\n");
  frontends = 1;
  EXPECT_EQ(launcher.requestWaiting(), Outcome::frontendConnected);
  frontends = 0;
  EXPECT_TRUE(promptStartsAutomatically(support)) << "on unless turned off";
  savePromptStartsAutomatically(support, false);
  EXPECT_EQ(launcher.requestWaiting(), Outcome::turnedOff);
  savePromptStartsAutomatically(support, true);
  std::filesystem::remove(dialog);
  EXPECT_EQ(launcher.requestWaiting(), Outcome::programMissing);
  EXPECT_FALSE(std::filesystem::exists(record));
}

// systemctl quotes values with special characters as $'…'; malformed lines are skipped.
TEST(ManagerEnvironment, ReadsPlainAndQuotedValuesAndSkipsTheRest) {
  struct Case {
    const char* output;
    SessionEnvironment expected;
  };
  const Case cases[] = {
      {"DISPLAY=:0\nWAYLAND_DISPLAY=wayland-1\n",
       {{"DISPLAY", ":0"}, {"WAYLAND_DISPLAY", "wayland-1"}}},
      {"XAUTHORITY=$'/home/a b/\\'x\\'\\\\\\x41'\n", {{"XAUTHORITY", "/home/a b/'x'\\A"}}},
      {"DISPLAY=$'unterminated\nDISPLAY=\nDISPLAY\n=:1\nPATH=/bin\n", {}},
      {"DISPLAY=$'\\x4'\nDISPLAY=$'\\q'\nDISPLAY=a'b\nDISPLAY=$'\\x00'\n", {}},
      {"DISPLAY=:1\r\nDISPLAY=:2", {{"DISPLAY", ":2"}}},
  };
  for (const Case& c : cases) EXPECT_EQ(parseManagerEnvironment(c.output), c.expected) << c.output;
}

TEST(ManagerEnvironment, TheManagerWinsVariableByVariableAndADisplayIsNeeded) {
  const SessionEnvironment own{{"DISPLAY", ":7"}, {"XAUTHORITY", "/old"}};
  EXPECT_EQ(graphicalSession(SessionEnvironment{{"DISPLAY", ":42"}}, own),
            (SessionEnvironment{{"DISPLAY", ":42"}, {"XAUTHORITY", "/old"}}));
  EXPECT_EQ(graphicalSession(std::nullopt, own), own);
  EXPECT_EQ(graphicalSession(SessionEnvironment{{"XAUTHORITY", "/x"}}, {}), std::nullopt);
}

}  // namespace
}  // namespace quorvane
