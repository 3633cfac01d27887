#include "ProcessContext/KnownAgents.h"

#include <algorithm>
#include <string_view>

namespace quorvane {

namespace {

bool contains(const std::vector<std::string>& list, std::string_view value) {
  return std::find(list.begin(), list.end(), value) != list.end();
}

bool holdsAny(std::string_view text, const std::vector<std::string>& markers) {
  return std::any_of(markers.begin(), markers.end(), [&](const std::string& marker) {
    return text.find(marker) != std::string_view::npos;
  });
}

std::string_view lastComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// The rows of the macOS table, with the Linux names and install locations of the same products
// added to their rows, then the editors that exist only outside that table.
std::vector<KnownAgent> makeTable() {
  return {
      {"claude-code",
       "Claude Code",
       true,
       {"claude"},
       {},
       {"/.local/share/claude/versions/", "/Claude/claude-code/"},
       {"@anthropic-ai/claude-code"}},
      {"claude", "Claude", true, {}, {"com.anthropic.claudefordesktop"}, {}, {}},
      {"codex", "Codex", true, {"codex"}, {"com.openai.codex"}, {}, {"@openai/codex"}},
      {"copilot",
       "GitHub Copilot CLI",
       true,
       {"copilot", "github-copilot-cli"},
       {},
       {},
       {"@github/copilot"}},
      {"gemini", "Gemini CLI", true, {"gemini"}, {}, {}, {"@google/gemini-cli"}},
      {"aider", "Aider", true, {"aider"}, {}, {}, {"aider.main", "/bin/aider"}},
      {"cursor",
       "Cursor",
       true,
       {"cursor"},
       {"com.todesktop.230313mzl4w4u92"},
       {"/Cursor.app/", "/usr/share/cursor/", "/opt/Cursor/", "/opt/cursor/", "/.mount_Cursor"},
       {}},
      {"vscode",
       "VS Code",
       false,
       {"code", "code-insiders", "codium", "code-oss"},
       {"com.microsoft.VSCode"},
       {"/Visual Studio Code.app/", "/usr/share/code/", "/usr/share/code-insiders/",
        "/opt/visual-studio-code/", "/usr/share/codium/", "/snap/code/"},
       {}},
      {"xcode", "Xcode", false, {}, {"com.apple.dt.Xcode"}, {"/Xcode.app/Contents/MacOS/"}, {}},
      {"zed",
       "Zed",
       false,
       {"zed", "zed-editor", "zeditor"},
       {"dev.zed.Zed"},
       {"/Zed.app/", "/zed.app/"},
       {}},
      {"jetbrains",
       "JetBrains IDE",
       false,
       {"idea", "pycharm", "clion", "goland", "webstorm", "phpstorm", "rubymine", "rider",
        "datagrip", "rustrover", "studio"},
       {"com.jetbrains.intellij", "com.jetbrains.pycharm", "com.jetbrains.CLion",
        "com.jetbrains.goland", "com.jetbrains.WebStorm", "com.jetbrains.rider",
        "com.google.android.studio"},
       {"/JetBrains/Toolbox/apps/"},
       {}},
  };
}

}  // namespace

const std::vector<KnownAgent>& knownAgents() {
  static const std::vector<KnownAgent> table = makeTable();
  return table;
}

bool fits(const KnownAgent& agent, const ProcessInfoEntry& process) {
  if (contains(agent.executableNames, lastComponent(process.path))) return true;
  if (process.signingIdentifier && contains(agent.bundleIDs, *process.signingIdentifier))
    return true;
  if (holdsAny(process.path, agent.pathMarkers)) return true;
  return std::any_of(
      process.arguments.begin(), process.arguments.end(),
      [&](const std::string& argument) { return holdsAny(argument, agent.argumentMarkers); });
}

const KnownAgent* match(const std::vector<ProcessInfoEntry>& chain) {
  const KnownAgent* editor = nullptr;
  for (const ProcessInfoEntry& process : chain) {
    const auto& table = knownAgents();
    auto row = std::find_if(table.begin(), table.end(),
                            [&](const KnownAgent& agent) { return fits(agent, process); });
    if (row == table.end()) continue;
    if (row->isCodingAgent) return &*row;
    if (!editor) editor = &*row;
  }
  return editor;
}

}  // namespace quorvane
