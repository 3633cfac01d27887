#include <gtest/gtest.h>

#include <optional>
#include <string>
#include <vector>

#include "ProcessContext/KnownAgents.h"

namespace quorvane {
namespace {

ProcessInfoEntry process(std::string path, std::vector<std::string> arguments = {},
                         std::optional<std::string> signingIdentifier = std::nullopt) {
  ProcessInfoEntry entry;
  entry.path = std::move(path);
  entry.arguments = std::move(arguments);
  entry.signingIdentifier = std::move(signingIdentifier);
  return entry;
}

const ProcessInfoEntry kSSH = process("/usr/bin/ssh", {"ssh", "git@github.com"});
const ProcessInfoEntry kGit = process("/usr/bin/git", {"git", "push"});
const ProcessInfoEntry kZsh = process("/bin/zsh", {"-zsh"});
const ProcessInfoEntry kTerminal =
    process("/System/Applications/Utilities/Terminal.app/Contents/MacOS/Terminal");
const ProcessInfoEntry kCodeHelper = process(
    "/Applications/Visual Studio Code.app/Contents/Frameworks/Code Helper.app/Contents/MacOS/"
    "Code Helper");
const ProcessInfoEntry kLinuxCode = process("/usr/share/code/code", {"/usr/share/code/code"});
const ProcessInfoEntry kZed = process("/home/me/.local/zed.app/libexec/zed-editor");

struct ChainCase {
  std::string name;
  std::vector<ProcessInfoEntry> chain;  // peer first
  std::optional<std::string> expected;  // the matched id
};

void PrintTo(const ChainCase& c, std::ostream* out) { *out << c.name; }

class MatchChain : public ::testing::TestWithParam<ChainCase> {};

TEST_P(MatchChain, FindsTheAgent) {
  const KnownAgent* agent = match(GetParam().chain);
  EXPECT_EQ(agent ? std::optional(agent->id) : std::nullopt, GetParam().expected);
}

INSTANTIATE_TEST_SUITE_P(
    Cases, MatchChain,
    ::testing::Values(
        ChainCase{
            "NodeRunningClaudeCode",
            {process("/opt/homebrew/bin/node",
                     {"node", "/opt/homebrew/lib/node_modules/@anthropic-ai/claude-code/cli.js"}),
             kZsh, kTerminal},
            "claude-code"},
        ChainCase{"EditorWithoutAgent", {kSSH, kGit, kCodeHelper}, "vscode"},
        ChainCase{"AgentInsideEditor",
                  {kSSH, kGit, process("/usr/local/bin/codex"), kCodeHelper},
                  "codex"},
        ChainCase{"FirstRowWinsForOneProcess",
                  {process("/Applications/Claude.app/Contents/MacOS/claude", {},
                           "com.anthropic.claudefordesktop")},
                  "claude-code"},
        ChainCase{"BundleIdentifier", {process("/x/y", {}, "com.openai.codex")}, "codex"},
        ChainCase{
            "PathMarker", {process("/home/me/.local/share/claude/versions/1.0.3")}, "claude-code"},
        ChainCase{"ArgumentMarker",
                  {process("/usr/bin/python3", {"python3", "-m", "aider.main"})},
                  "aider"},
        ChainCase{"NamesAreExact",
                  {process("/usr/bin/Claude"), process("/usr/bin/claude-helper")},
                  std::nullopt},
        ChainCase{"LinuxEditor", {kSSH, kGit, kLinuxCode}, "vscode"},
        ChainCase{"NearestEditorReported", {kSSH, kLinuxCode, kZed}, "vscode"},
        ChainCase{"AgentAboveEditorWins",
                  {kSSH, kZed, process("/home/me/.local/bin/claude")},
                  "claude-code"},
        ChainCase{"NoAgent", {kSSH, kGit, kZsh, kTerminal}, std::nullopt},
        ChainCase{"EmptyChain", {}, std::nullopt}));

TEST(KnownAgents, TableKeepsItsOrder) {
  std::vector<std::string> ids;
  for (const KnownAgent& agent : knownAgents()) ids.push_back(agent.id);
  EXPECT_EQ(
      ids, (std::vector<std::string>{"claude-code", "claude", "codex", "copilot", "gemini", "aider",
                                     "cursor", "vscode", "xcode", "zed", "jetbrains"}));
  EXPECT_EQ(&knownAgents(), &knownAgents());
}

}  // namespace
}  // namespace quorvane
