#include "ConfigKit/SSHConfigEditor.h"

#include <optional>
#include <utility>

#include "ConfigKit/ConfigKitError.h"

namespace quorvane {

namespace {

bool isControl(char c) { return static_cast<unsigned char>(c) < 0x20 || c == 0x7f; }

// The offset of the first line at or after `from` that is exactly `line`.
std::optional<size_t> findWholeLine(std::string_view text, std::string_view line, size_t from) {
  for (size_t at = text.find(line, from); at != std::string_view::npos;
       at = text.find(line, at + 1)) {
    const bool startsLine = at == 0 || text[at - 1] == '\n';
    const size_t end = at + line.size();
    const bool endsLine = end == text.size() || text[end] == '\n';
    if (startsLine && endsLine) return at;
  }
  return std::nullopt;
}

// Where the first complete block starts and where the cut after it ends.
std::optional<std::pair<size_t, size_t>> findBlock(std::string_view text) {
  auto begin = findWholeLine(text, SSHConfigEditor::kBeginMarker, 0);
  auto earlier = findWholeLine(text, SSHConfigEditor::kEarlierBeginMarker, 0);
  if (!begin || (earlier && *earlier < *begin)) begin = earlier;
  if (!begin) return std::nullopt;
  auto end = findWholeLine(text, SSHConfigEditor::kEndMarker, *begin + 1);
  if (!end) return std::nullopt;
  size_t cut = *end + SSHConfigEditor::kEndMarker.size();
  if (cut < text.size() && text[cut] == '\n') ++cut;
  if (cut < text.size() && text[cut] == '\n') ++cut;
  return std::pair{*begin, cut};
}

}  // namespace

std::string SSHConfigEditor::managedBlock() const {
  std::string block(kBeginMarker);
  block += "\nHost *";
  for (const std::string& host : excludedHosts) block += " !" + host;
  block += "\n  IdentityAgent " + socketPath + "\n";
  block += kEndMarker;
  block += "\n";
  return block;
}

std::string SSHConfigEditor::applying(std::string_view text) const {
  std::string rest = removingManagedBlock(text);
  std::string result = managedBlock();
  if (!rest.empty()) result += "\n" + rest;
  return result;
}

std::string SSHConfigEditor::removingManagedBlock(std::string_view text) {
  auto block = findBlock(text);
  if (!block) return std::string(text);
  return std::string(text.substr(0, block->first)) + std::string(text.substr(block->second));
}

bool SSHConfigEditor::hasManagedBlock(std::string_view text) { return findBlock(text).has_value(); }

void SSHConfigEditor::checkHostPattern(std::string_view pattern) {
  bool valid = !pattern.empty() && pattern.front() != '!';
  for (char c : pattern)
    if (isControl(c) || c == ' ' || c == '"') valid = false;
  if (!valid) throw ConfigKitError::invalidHostPattern(std::string(pattern));
}

std::string SSHConfigEditor::socketPathArgument(std::string_view path) {
  if (path.find("${") != std::string_view::npos)
    throw ConfigKitError::invalidSocketPath(std::string(path));
  std::string argument;
  bool quote = false;
  for (char c : path) {
    if (c == ' ' || c == '\t') {
      quote = true;
    } else if (isControl(c) || c == '"') {
      throw ConfigKitError::invalidSocketPath(std::string(path));
    }
    argument += c;
    if (c == '%') argument += '%';
  }
  return quote ? "\"" + argument + "\"" : argument;
}

}  // namespace quorvane
