// Runs the ssh config editor and the line diff over arbitrary file text. Checks that applying the
// block is idempotent and removable, and that every diff rebuilds both texts exactly. Only
// ConfigKitError (a diff too large) may come out.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <string_view>
#include <vector>

#include "ConfigKit/ConfigKitError.h"
#include "ConfigKit/LineDiff.h"
#include "ConfigKit/SSHConfigEditor.h"

namespace {

using namespace quorvane;

// Keeps each run fast: the diff table grows with the product of the line counts.
constexpr size_t kMaxInput = 1024;

// The old (or new) text that `lines` describe, with `skipped` lines left out.
std::string rebuild(const std::vector<LineDiff::Line>& lines, LineDiff::Line::Kind skipped) {
  std::string text;
  bool first = true;
  for (const LineDiff::Line& line : lines) {
    if (line.kind == skipped) continue;
    if (!first) text += '\n';
    text += line.text;
    first = false;
  }
  return text;
}

void checkDiff(std::string_view before, std::string_view after) {
  std::vector<LineDiff::Line> lines;
  try {
    lines = LineDiff::lines(before, after);
  } catch (const ConfigKitError&) {
    return;
  }
  if (rebuild(lines, LineDiff::Line::Kind::added) != before) std::abort();
  if (rebuild(lines, LineDiff::Line::Kind::removed) != after) std::abort();
  if (LineDiff::changes(lines) != (before != after)) std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxInput) return 0;
  const std::string_view text(reinterpret_cast<const char*>(data), size);

  SSHConfigEditor editor{"/home/me/.ssh/quorvane/agent.sock", {"legacy", "*.internal"}};
  const std::string applied = editor.applying(text);
  if (applied.rfind(editor.managedBlock(), 0) != 0) std::abort();
  if (editor.applying(applied) != applied) std::abort();
  if (!SSHConfigEditor::hasManagedBlock(applied)) std::abort();
  const std::string removed = SSHConfigEditor::removingManagedBlock(applied);
  if (removed != SSHConfigEditor::removingManagedBlock(text)) std::abort();

  checkDiff(text, applied);
  const size_t half = text.find('\0');
  if (half != std::string_view::npos) checkDiff(text.substr(0, half), text.substr(half + 1));
  return 0;
}
