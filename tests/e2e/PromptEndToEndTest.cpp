#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <future>

#include "e2e/EndToEndSupport.h"

namespace quorvane::testing {
namespace {

using namespace std::chrono_literals;

constexpr const char* kDialogTitle = "Quorvane: approve a signature?";

bool onPath(const std::string& program) {
  return runCommand({"sh", "-c", "command -v \"$0\" >/dev/null", program}).exitCode == 0;
}

// An X server without a screen (Xvfb) on a display number that was free, stopped by its pid when
// this object dies. It does not reset when its last client leaves (an X server's default), which
// would refuse the next dialog's connection for a moment.
class VirtualDisplay {
 public:
  explicit VirtualDisplay(const std::filesystem::path& folder) {
    for (int number = 90; number < 190 && !process_; ++number) {
      const std::string socket = "/tmp/.X11-unix/X" + std::to_string(number);
      if (std::filesystem::exists(socket) ||
          std::filesystem::exists("/tmp/.X" + std::to_string(number) + "-lock"))
        continue;
      auto process = std::make_unique<BackgroundProcess>(
          std::vector<std::string>{"Xvfb", ":" + std::to_string(number), "-screen", "0",
                                   "1024x768x24", "-nolisten", "tcp", "-noreset"},
          folder / "xvfb.log");
      // Ready once a client can connect (the socket shows before the server serves). Another
      // server may have taken the number meanwhile: then this one ends, and the next is tried.
      const std::string name = ":" + std::to_string(number);
      if (eventually(
              [&] {
                return process->waitFor(0ms) ||
                       runCommand({"env", "DISPLAY=" + name, "xdotool", "getdisplaygeometry"})
                               .exitCode == 0;
              },
              10s) &&
          !process->waitFor(0ms)) {
        name_ = ":" + std::to_string(number);
        process_ = std::move(process);
      }
    }
  }
  const std::string& name() const { return name_; }

 private:
  std::string name_;
  std::unique_ptr<BackgroundProcess> process_;
};

// The agent in a temporary home, started with the dialog, on a virtual display: every variable
// that could lead to the user's real session is replaced (a `systemctl` that knows no user
// manager comes first in PATH, so the agent falls back to this display).
class PromptEndToEnd : public ::testing::Test {
 protected:
  void SetUp() override {
    for (const char* program : {"Xvfb", "xdotool", "import", "ssh", "sshd"})
      if (!onPath(program) && !std::filesystem::exists(std::string("/usr/sbin/") + program))
        GTEST_SKIP() << program << " is not installed (scripts/install-deps.sh --tests)";
    display_ = std::make_unique<VirtualDisplay>(quorvane.home());
    ASSERT_FALSE(display_->name().empty()) << "no free display number for Xvfb";
    const auto bin = quorvane.home() / "bin";
    std::filesystem::create_directories(bin);
    writeFile(bin / "systemctl", "#!/bin/sh\nexit 1\n");
    std::filesystem::permissions(bin / "systemctl", std::filesystem::perms::owner_all);
    ::setenv("PATH", (bin.string() + ":" + std::getenv("PATH")).c_str(), 1);
    ::setenv("DISPLAY", display_->name().c_str(), 1);
    ::setenv("GDK_BACKEND", "x11", 1);
    ::setenv("GSK_RENDERER", "cairo", 1);
    ::setenv("NO_AT_BRIDGE", "1", 1);
    ::unsetenv("WAYLAND_DISPLAY");
    ::unsetenv("XAUTHORITY");
    ::unsetenv("DBUS_SESSION_BUS_ADDRESS");
    quorvane.stopAgent();
    quorvane.agentArguments = {"--prompt-program", QUORVANE_PROMPT_BINARY};
    quorvane.startAgent();
  }

  std::string publicKey(const std::string& name) {
    std::string line = quorvane.quorvane({"keys", "public", name}).output;
    return line.substr(0, line.find('\n'));
  }

  std::future<CommandResult> login(int port) {
    const std::vector<std::string> command = quorvane.sshCommand(port, {"echo", "in"});
    return std::async(std::launch::async, [command] { return runCommand(command); });
  }

  // The dialog's X window, once it shows (within 20 s); empty when it does not.
  std::string dialogWindow() {
    std::string window;
    eventually(
        [&] {
          CommandResult found = runCommand({"xdotool", "search", "--name", kDialogTitle});
          window = found.exitCode == 0 ? found.output.substr(0, found.output.find('\n')) : "";
          return !window.empty();
        },
        20s);
    return window;
  }

  bool dialogGone() {
    return eventually([&] {
      return runCommand({"xdotool", "search", "--name", kDialogTitle}).exitCode != 0;
    });
  }

  int windowHeight(const std::string& window) {
    const auto geometry = runCommand({"xdotool", "getwindowgeometry", "--shell", window}).output;
    const size_t at = geometry.find("HEIGHT=");
    return at == std::string::npos ? 0 : std::atoi(geometry.c_str() + at + 7);
  }

  // Where "Allow once" is in the window: the buttons' row is the one with the wide red fill of
  // "Deny and block"; "Allow once" is the row's first button, at the window's left margin.
  std::optional<std::pair<int, int>> allowOncePosition(const std::string& window) {
    const auto raw = quorvane.home() / "window.rgb";
    const auto geometry = runCommand({"xdotool", "getwindowgeometry", "--shell", window}).output;
    const auto number = [&](const std::string& key) {
      const size_t at = geometry.find(key + "=");
      return at == std::string::npos ? 0 : std::atoi(geometry.c_str() + at + key.size() + 1);
    };
    const int width = number("WIDTH"), height = number("HEIGHT");
    if (width <= 0 || height <= 0 ||
        runCommand({"import", "-window", window, "-depth", "8", "rgb:" + raw.string()}).exitCode !=
            0)
      return std::nullopt;
    const std::string pixels = readFile(raw);
    if (pixels.size() < static_cast<size_t>(width) * height * 3) return std::nullopt;
    std::vector<int> redRows;
    for (int y = 0; y < height; ++y) {
      // A run of red as long as the button's fill; red text (a warning) has no such run.
      int run = 0, longest = 0;
      for (int x = 0; x < width; ++x) {
        const auto* p = reinterpret_cast<const unsigned char*>(pixels.data()) + 3 * (y * width + x);
        run = p[0] > 180 && p[1] < 80 && p[2] < 80 ? run + 1 : 0;
        longest = std::max(longest, run);
      }
      if (longest >= 100) redRows.push_back(y);
    }
    if (redRows.empty()) return std::nullopt;
    return std::pair{30, (redRows.front() + redRows.back()) / 2};
  }

  QuorvaneHome quorvane;
  std::unique_ptr<VirtualDisplay> display_;
};

TEST_F(PromptEndToEnd, TheAgentOpensTheDialogAndItsAnswersDecideTheLogin) {
  quorvane.quorvane({"keys", "generate", "laptop"});
  SSHServer server(quorvane.home() / "sshd", {publicKey("laptop")});
  writeFile(quorvane.home() / ".ssh" / "known_hosts", server.knownHostsLine() + "\n");

  // A click on "Allow once", and the password typed into the same window, let the login through.
  quorvane.usePAM(PAMService::asks);
  auto first = login(server.port());
  std::string window = dialogWindow();
  ASSERT_FALSE(window.empty()) << readFile(quorvane.home() / "agent.log")
                               << readFile(quorvane.home() / "xvfb.log") << display_->name();
  // The window may show before it is drawn.
  std::optional<std::pair<int, int>> button;
  eventually([&] { return (button = allowOncePosition(window)).has_value(); });
  ASSERT_TRUE(button);
  const int shortHeight = windowHeight(window);
  ASSERT_EQ(runCommand({"import", "-window", window, QUORVANE_SCREENSHOT}).exitCode, 0);
  // The pointer moves in first and rests a moment, as a hand would: GTK takes a press as a click
  // only on a button the pointer has entered.
  ASSERT_EQ(runCommand({"xdotool", "mousemove", "--window", window, std::to_string(button->first),
                        std::to_string(button->second), "sleep", "0.5", "click", "1"})
                .exitCode,
            0);
  // The verification's prompt makes the window taller; then the password goes into its field.
  EXPECT_TRUE(eventually([&] { return windowHeight(window) > shortHeight; }));
  ASSERT_EQ(runCommand({"timeout", "10", "xdotool", "windowfocus", "--sync", window, "type",
                        "--delay", "20", std::string(kTypedSecret)})
                .exitCode,
            0);
  ASSERT_EQ(runCommand({"xdotool", "key", "Return"}).exitCode, 0);
  CommandResult allowed = first.get();
  EXPECT_EQ(allowed.exitCode, 0) << readFile(quorvane.home() / "agent.log");
  EXPECT_EQ(allowed.output, "in\n");
  JSON entry = quorvane.lastEntry();
  EXPECT_EQ(entry["purpose"], "login");
  EXPECT_EQ(entry["outcome"], "signed");
  EXPECT_EQ(entry["decidedBy"], "you, with quorvane-prompt");
  EXPECT_TRUE(dialogGone()) << "the dialog closes when nothing waits";

  // Escape denies the next one.
  quorvane.usePAM(PAMService::permit);
  auto second = login(server.port());
  window = dialogWindow();
  ASSERT_FALSE(window.empty());
  // Once it is drawn, the dialog gets the keyboard focus (there is no window manager to give it)
  // and a real key press.
  EXPECT_TRUE(eventually([&] { return allowOncePosition(window).has_value(); }));
  ASSERT_EQ(runCommand({"timeout", "10", "xdotool", "windowfocus", "--sync", window, "sleep", "0.3",
                        "key", "Escape"})
                .exitCode,
            0);
  EXPECT_NE(second.get().exitCode, 0);
  EXPECT_EQ(quorvane.lastEntry()["outcome"], "denied");
  EXPECT_TRUE(dialogGone());

  // A request answered elsewhere closes the dialog.
  auto third = login(server.port());
  ASSERT_FALSE(dialogWindow().empty());
  quorvane.approveNext();
  EXPECT_EQ(third.get().exitCode, 0);
  EXPECT_TRUE(dialogGone()) << "the dialog closes when its request ends elsewhere";
  const std::string log = readFile(quorvane.home() / "agent.log");
  EXPECT_NE(log.find("opened the approval dialog"), std::string::npos) << log;
}

}  // namespace
}  // namespace quorvane::testing
