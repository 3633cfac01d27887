#include <gtest/gtest.h>
#include <signal.h>

#include <atomic>
#include <chrono>
#include <thread>

#include "ConfigKit/SSHConfigEditor.h"
#include "Platform/FileKeychain.h"
#include "Platform/Paths.h"
#include "e2e/EndToEndSupport.h"
#include "support/ScriptedHTTPServer.h"
#include "support/TestCertificateAuthority.h"

namespace quorvane::testing {
namespace {

// A temporary home whose agent socket path has a chosen length, with HOME and the XDG folders
// pointing into it; the agent is started on request.
class SizedHome {
 public:
  explicit SizedHome(size_t socketLength = 0) {
    const size_t suffix = std::string("/.ssh/quorvane/agent.sock").size();
    const size_t base = base_.path().string().size() + 1;
    home_ = base_.path() /
            std::string(socketLength > base + suffix ? socketLength - suffix - base : 4, 'h');
    std::filesystem::create_directories(home_ / ".ssh");
    ::setenv("HOME", home_.c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home_ / "data").c_str(), 1);
    ::setenv("XDG_CONFIG_HOME", (home_ / "config").c_str(), 1);
    ::setenv("XDG_RUNTIME_DIR", (home_ / "run").c_str(), 1);
    ::setenv("SSH_AUTH_SOCK", socket().c_str(), 1);
    ::setenv("QUORVANE_TPM_TCTI", ("device:" + (home_ / "tpmrm0").string()).c_str(), 1);
  }
  ~SizedHome() { stopAgent(); }

  std::filesystem::path socket() const { return home_ / ".ssh" / "quorvane" / "agent.sock"; }
  const std::filesystem::path& home() const { return home_; }

  // The agent verifies presence with a private pam_permit service, as in QuorvaneHome.
  void startAgent() {
    writePAMService(home_ / "pam", PAMService::permit);
    agent_ = std::make_unique<BackgroundProcess>(
        std::vector<std::string>{QUORVANE_AGENT_BINARY, "--pam-config-dir",
                                 (home_ / "pam").string()},
        home_ / "agent.log");
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(socket()); }))
        << readFile(home_ / "agent.log");
    // Doctor judges presence verification by the system's PAM service and the account's
    // password, which the private service here replaces; off, it is only a warning.
    EXPECT_EQ(quorvane({"presence", "off"}).exitCode, 0);
  }
  void stopAgent() {
    if (agent_) {
      EXPECT_EQ(agent_->stop(SIGTERM), 0);
    }
    agent_.reset();
  }

  CommandResult quorvane(const std::vector<std::string>& arguments) {
    std::vector<std::string> command = {QUORVANE_CLI_BINARY};
    command.insert(command.end(), arguments.begin(), arguments.end());
    return runCommand(command);
  }

  // `quorvane doctor --json`: its exit code and the checks by title.
  std::pair<int, std::map<std::string, JSON>> doctor() {
    CommandResult result = quorvane({"doctor", "--json"});
    std::map<std::string, JSON> checks;
    for (const JSON& check : JSON::parse(result.output)) checks[check["title"]] = check;
    return {result.exitCode, checks};
  }

 private:
  TemporaryDirectory base_;
  std::filesystem::path home_;
  std::unique_ptr<BackgroundProcess> agent_;
};

std::string levelAndDetail(const JSON& check) {
  return check.value("level", "") + ": " + check.value("detail", "");
}

TEST(Doctor, ReportsARunningAgentItsKeysAndHostsThenAStoppedOne) {
  SizedHome home;
  home.startAgent();
  ASSERT_EQ(home.quorvane({"keys", "generate", "laptop"}).exitCode, 0);
  ASSERT_EQ(home.quorvane({"keys", "generate", "spare"}).exitCode, 0);
  writeFile(home.home() / ".ssh" / "config",
            std::string(SSHConfigEditor::kBeginMarker) +
                "\nHost github.com work\n  IdentityAgent " + home.socket().string() + "\n" +
                std::string(SSHConfigEditor::kEndMarker) +
                "\nHost excluded.example\n  IdentityAgent none\nHost *\n"
                "  User git\n");
  auto [code, checks] = home.doctor();
  EXPECT_EQ(code, 0);
  EXPECT_EQ(levelAndDetail(checks["Agent answers"]),
            "ok: 2 keys offered at ~/.ssh/quorvane/agent.sock");
  EXPECT_EQ(checks["Socket path"]["level"], "ok");
  EXPECT_EQ(levelAndDetail(checks["~/.ssh/config"]),
            "warning: 1 of 3 hosts don't use Quorvane: excluded.example. That's fine if you "
            "excluded them on purpose.");
  EXPECT_EQ(levelAndDetail(checks["Keys in Quorvane's keychain"]), "ok: 2 keys available");
  EXPECT_EQ(levelAndDetail(checks["TPM"]),
            "warning: No TPM at " + (home.home() / "tpmrm0").string() +
                ": new keys are software keys, which programs running as you could copy.");
  EXPECT_EQ(checks.count("ssh-agent"), 0u);

  // A key whose secret is gone, then the agent stopped.
  JSON keys = JSON::parse(home.quorvane({"keys", "list", "--json"}).output);
  FileKeychain keychain(keychainFolder());
  std::filesystem::remove(
      keychain.itemPath("com.tallowmere.quorvane.keys", keys[1]["id"].get<std::string>()));
  home.stopAgent();
  std::tie(code, checks) = home.doctor();
  EXPECT_NE(code, 0);
  EXPECT_EQ(levelAndDetail(checks["Agent answers"]),
            "problem: Quorvane Agent isn't running. SSH and Git can't use your keys. Restart it "
            "with quorvane agent restart.");
  EXPECT_EQ(levelAndDetail(checks["Socket path"]),
            "warning: ~/.ssh/quorvane/agent.sock is missing. The agent recreates it within a "
            "minute after it starts.");
  EXPECT_EQ(levelAndDetail(checks["Keys in Quorvane's keychain"]),
            "problem: Unavailable: spare. They can't sign; create replacements and update your "
            "services.");
}

// Real agents in homes whose socket paths are 103 and 104 bytes long; at 108 bytes no socket can
// be bound, and the check names the length.
TEST(Doctor, SocketPathLengthsAroundTheLimit) {
  for (size_t length : {103, 104}) {
    SizedHome home(length);
    ASSERT_EQ(home.socket().string().size(), length);
    home.startAgent();
    auto [code, checks] = home.doctor();
    EXPECT_EQ(code, 0) << length;
    EXPECT_EQ(levelAndDetail(checks["Socket path"]),
              "ok: ~/.ssh/quorvane/agent.sock (" + std::to_string(length) + " of 107 bytes)");
    EXPECT_EQ(checks["Agent answers"]["level"], "ok");
  }
  SizedHome tooLong(108);
  auto [code, checks] = tooLong.doctor();
  EXPECT_NE(code, 0);
  EXPECT_EQ(levelAndDetail(checks["Socket path"]),
            "problem: Your home folder path is too long for a socket (108 of 107 bytes).");
}

TEST(Shortcuts, LockAndShowPendingWorkWithAndWithoutAnAgent) {
  SizedHome home;
  FileKeychain keychain(keychainFolder());
  auto lockedByte = [&] {
    KeychainReadResult item = keychain.read("com.tallowmere.quorvane.settings", "agent-locked");
    return item.status == kKeychainSuccess && item.data.size() == 1 ? int(item.data.data()[0]) : -1;
  };
  for (bool running : {false, true}) {
    if (running) home.startAgent();
    CommandResult lock = home.quorvane({"lock"});
    EXPECT_EQ(lock.exitCode, 0);
    EXPECT_EQ(lock.output, "All SSH keys are locked.\n");
    CommandResult show = home.quorvane({"pending", "--show"});
    EXPECT_EQ(show.exitCode, 0);
    EXPECT_EQ(show.output, "Nothing is waiting.\n");
    // Only a running agent keeps the lock (and across its restarts).
    EXPECT_EQ(lockedByte(), running ? 1 : -1);
  }
  EXPECT_EQ(home.quorvane({"unlock"}).exitCode, 0);
  EXPECT_EQ(lockedByte(), 0);
}

// Where no systemd user manager answers (containers, CI), installing says so and writes nothing.
TEST(AgentService, InstallNeedsASystemdUserManager) {
  SizedHome home;
  if (runCommand({"systemctl", "--user", "show-environment"}).exitCode == 0)
    GTEST_SKIP() << "a systemd user manager runs here; installing would change the session";
  EXPECT_NE(home.quorvane({"agent", "install"}).exitCode, 0);
  EXPECT_FALSE(std::filesystem::exists(home.home() / "config" / "systemd" / "user"));
  JSON status = JSON::parse(home.quorvane({"agent", "status", "--json"}).output);
  EXPECT_EQ(status["userManager"], false);
  EXPECT_EQ(status["installed"], false);
  EXPECT_EQ(status["unit"],
            (home.home() / "config" / "systemd" / "user" / "com.tallowmere.quorvane.agent.service")
                .string());
}

// With a systemd user manager (here a stand-in systemctl that records its arguments and answers
// like systemd), install writes the unit for the given agent and enables it; doctor then sees the
// service; uninstall disables it and removes the unit.
TEST(AgentService, InstallWritesTheUnitAndEnablesIt) {
  SizedHome home;
  const std::filesystem::path bin = home.home() / "bin", log = home.home() / "systemctl.log";
  std::filesystem::create_directories(bin);
  writeFile(bin / "systemctl", "#!/bin/sh\necho \"$*\" >> " + log.string() +
                                   "\ncase \"$2\" in\n"
                                   "  show-environment) echo SSH_AUTH_SOCK=" +
                                   home.socket().string() +
                                   ";;\n  is-enabled) echo enabled;;\nesac\n");
  std::filesystem::permissions(bin / "systemctl", std::filesystem::perms::owner_all);
  const std::string path = std::getenv("PATH");
  ::setenv("PATH", (bin.string() + ":" + path).c_str(), 1);

  EXPECT_EQ(home.quorvane({"agent", "install", "--program", QUORVANE_AGENT_BINARY}).exitCode, 0);
  const auto unit = home.home() / "config/systemd/user/com.tallowmere.quorvane.agent.service";
  std::string text = readFile(unit);
  EXPECT_NE(text.find("\nExecStart=" + std::string(QUORVANE_AGENT_BINARY) + "\n"),
            std::string::npos)
      << text;
  auto [code, checks] = home.doctor();
  EXPECT_EQ(checks["Agent registered"]["detail"],
            "Starts at login as com.tallowmere.quorvane.agent.service");
  EXPECT_EQ(checks["Default agent for apps (SSH_AUTH_SOCK)"]["level"], "ok");
  EXPECT_EQ(home.quorvane({"agent", "uninstall"}).exitCode, 0);
  EXPECT_FALSE(std::filesystem::exists(unit));
  ::setenv("PATH", path.c_str(), 1);

  std::string calls = readFile(log);
  for (const char* call :
       {"--user daemon-reload\n", "--user enable --now com.tallowmere.quorvane.agent.service\n",
        "--user disable --now com.tallowmere.quorvane.agent.service\n"})
    EXPECT_NE(calls.find(call), std::string::npos) << call << calls;
}

TEST(RulesTemplates, ListAddAndShowInTheEditorsWords) {
  SizedHome home;
  EXPECT_EQ(home.quorvane({"rules", "templates"}).output,
            "1. Never allow forwarded sign-ins\n2. Git commits: ask on my phone\n");
  JSON five = JSON::parse(home.quorvane({"rules", "templates", "--host-key", "SHA256:h",
                                         "--coding-agent", "/usr/bin/claude", "--json"})
                              .output);
  ASSERT_EQ(five.size(), 5u);
  EXPECT_EQ(five[1]["title"], "Coding agent: may fetch, asks to push, never signs");
  EXPECT_EQ(five[1]["rule"]["hostKeys"], JSON::array({"SHA256:h"}));

  EXPECT_EQ(home.quorvane({"rules", "list"}).output,
            "Without rules, Quorvane asks you every time. Add a rule from a template to stop "
            "asking for things you always allow.\n");
  EXPECT_EQ(home.quorvane({"rules", "add", "--template", "1", "--yes"}).exitCode, 0);
  EXPECT_NE(home.quorvane({"rules", "add", "--template", "3", "--yes"}).exitCode, 0);
  EXPECT_NE(
      home.quorvane({"rules", "add", "--template", "1", "--decision", "allow", "--yes"}).exitCode,
      0);
  JSON rules = JSON::parse(home.quorvane({"rules", "list", "--json"}).output);
  ASSERT_EQ(rules.size(), 1u);
  EXPECT_EQ(rules[0]["name"], "No forwarded sign-ins");
  EXPECT_EQ(rules[0]["forwardedOnly"], true);
  std::string text = home.quorvane({"rules", "list"}).output;
  for (const char* line :
       {"  Deny: Sign in (ssh, git fetch/push)\n", "  Security conditions (verified)\n",
        "    Also for forwarded connections (ssh -A): yes\n",
        "    Only forwarded connections (ssh -A): yes\n",
        "  Security rule: based on facts Quorvane can verify.\n"})
    EXPECT_NE(text.find(line), std::string::npos) << line << text;

  // A rules file changed outside Quorvane is ignored and says so.
  const auto file = home.home() / "data" / "quorvane" / "rules.json";
  JSON sealed = JSON::parse(readFile(file));
  std::string mac = sealed["mac"];
  mac[0] = mac[0] == 'A' ? 'B' : 'A';
  sealed["mac"] = mac;
  std::filesystem::remove(file);
  writeFile(file, sealed.dump());
  EXPECT_EQ(home.quorvane({"rules", "list"}).output,
            "The rules file was changed outside Quorvane and is ignored. Every request asks until "
            "you save rules here again.\n");
}

// A rule whose conditions could never match is refused; one that allows everything needs
// --allow-any besides --yes without a terminal.
TEST(RulesAdd, ChecksEveryConditionAndConfirmsAllowingAnything) {
  SizedHome home;
  const std::string hostKey = "SHA256:" + std::string(43, 'A');
  for (const std::vector<std::string>& refused :
       {std::vector<std::string>{"--host-key", "notafingerprint"},
        std::vector<std::string>{"--host-key", "SHA256:short"},
        std::vector<std::string>{"--dir", "relative/dir"},
        std::vector<std::string>{"--key", "no-such-key"}}) {
    std::vector<std::string> command = {"rules", "add", "--decision", "allow", "--yes"};
    command.insert(command.end(), refused.begin(), refused.end());
    EXPECT_EQ(home.quorvane(command).exitCode, 1) << refused[1];
  }
  EXPECT_EQ(home.quorvane({"rules", "add", "--decision", "allow", "--yes"}).exitCode, 2);
  EXPECT_EQ(JSON::parse(home.quorvane({"rules", "list", "--json"}).output).size(), 0u);

  const std::string shown = home.quorvane({"rules", "add", "--decision", "allow", "--host-key",
                                           hostKey, "--dir", "/home/me/src", "--yes"})
                                .output;
  EXPECT_NE(shown.find(hostKey), std::string::npos) << "the rule is shown before it is saved";
  home.quorvane({"rules", "add", "--decision", "allow", "--yes", "--allow-any"});
  EXPECT_EQ(JSON::parse(home.quorvane({"rules", "list", "--json"}).output).size(), 2u);
}

// The relay set with `remote relay` is what `remote status` and doctor's relay check ask: its
// health request, its Date header against this computer's clock, its private certificate
// authority.
TEST(RemoteRelay, TheSettingReachesStatusAndDoctor) {
  SizedHome home;
  std::atomic<double> relayBehind = 31;
  std::atomic<int> healthStatus = 200;
  auto script = [&](const RecordedRequest& request) {
    if (request.target != "/relay/healthz") return ScriptedAnswer{404, {}, ""};
    // The header has whole seconds and the check drops the fraction of the difference, so the
    // header is made early in a second: the answer then has most of a second to arrive before a
    // relay 30 s behind would read as 31.
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    const auto intoSecond = now - std::chrono::duration_cast<std::chrono::seconds>(now);
    if (intoSecond > std::chrono::milliseconds(200))
      std::this_thread::sleep_for(std::chrono::seconds(1) - intoSecond);
    return ScriptedAnswer{healthStatus.load(), {{"Date", httpDate(-relayBehind.load())}}, "ok"};
  };
  ScriptedHTTPServer relay(script);
  const std::string url = relay.baseURL() + "relay/";
  EXPECT_EQ(home.quorvane({"remote", "relay", "http://relay.example.com/", "--yes"}).exitCode, 1);
  ASSERT_EQ(home.quorvane({"remote", "relay", url, "--yes"}).exitCode, 0);

  JSON status = JSON::parse(home.quorvane({"remote", "status", "--json"}).output);
  EXPECT_EQ(status["relay"]["url"], url);
  EXPECT_EQ(status["relay"]["caFile"], nullptr);
  EXPECT_EQ(status["paused"], false);
  EXPECT_EQ(levelAndDetail(status["health"]),
            "warning: This computer's clock is off by 31 s. Remote approvals may fail.");
  EXPECT_EQ(levelAndDetail(home.doctor().second["Remote approval relay"]),
            "warning: This computer's clock is off by 31 s. Remote approvals may fail.");
  relayBehind = 30;
  EXPECT_EQ(levelAndDetail(home.doctor().second["Remote approval relay"]), "ok: Online");
  healthStatus = 503;
  status = JSON::parse(home.quorvane({"remote", "status", "--json"}).output);
  EXPECT_EQ(levelAndDetail(status["health"]),
            "warning: Remote approval is offline. Approve on this computer instead.");
  EXPECT_EQ(status["health"]["problem"], "the relay answered with error 503");

  TestCertificateAuthority authority;
  ASSERT_TRUE(authority.make("relay"));
  ScriptedHTTPServer privateRelay(
      script, ScriptedHTTPServer::TLSFiles{authority.certificate(), authority.key()});
  healthStatus = 200;
  const std::string privateURL = privateRelay.baseURL() + "relay";
  ASSERT_EQ(
      home.quorvane({"remote", "relay", privateURL, "--ca-file", authority.ca().string(), "--yes"})
          .exitCode,
      0);
  status = JSON::parse(home.quorvane({"remote", "status", "--json"}).output);
  EXPECT_EQ(status["relay"]["caFile"], authority.ca().string());
  EXPECT_EQ(levelAndDetail(home.doctor().second["Remote approval relay"]), "ok: Online");

  ASSERT_EQ(home.quorvane({"remote", "relay", "--clear", "--yes"}).exitCode, 0);
  EXPECT_EQ(levelAndDetail(home.doctor().second["Remote approval relay"]),
            "ok: Not set up; requests are approved on this computer.");
}

}  // namespace
}  // namespace quorvane::testing
