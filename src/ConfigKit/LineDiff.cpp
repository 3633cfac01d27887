#include "ConfigKit/LineDiff.h"

#include <algorithm>
#include <cstdint>

#include "ConfigKit/ConfigKitError.h"

namespace quorvane {

namespace {

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  size_t start = 0;
  for (size_t newline = text.find('\n'); newline != std::string_view::npos;
       newline = text.find('\n', start)) {
    lines.push_back(text.substr(start, newline - start));
    start = newline + 1;
  }
  lines.push_back(text.substr(start));
  return lines;
}

}  // namespace

std::vector<LineDiff::Line> LineDiff::lines(std::string_view oldText, std::string_view newText) {
  const std::vector<std::string_view> before = splitLines(oldText);
  const std::vector<std::string_view> after = splitLines(newText);
  std::vector<Line> result;

  // A common first stretch is walked as `same` lines whatever the table says, so it needs none.
  size_t skip = 0;
  while (skip < before.size() && skip < after.size() && before[skip] == after[skip]) {
    result.push_back(Line::same(std::string(before[skip])));
    ++skip;
  }
  const size_t n = before.size() - skip;
  const size_t m = after.size() - skip;
  const size_t width = m + 1;
  if ((n + 1) > kMaxTableCells / width)
    throw ConfigKitError::diffTooLarge(before.size(), after.size());

  // cell(i, j): the length of the longest common subsequence of the old lines from i and the new
  // lines from j, filled from the end.
  std::vector<uint32_t> table((n + 1) * width, 0);
  auto cell = [&](size_t i, size_t j) -> uint32_t& { return table[i * width + j]; };
  for (size_t i = n; i-- > 0;)
    for (size_t j = m; j-- > 0;)
      cell(i, j) = before[skip + i] == after[skip + j] ? cell(i + 1, j + 1) + 1
                                                       : std::max(cell(i + 1, j), cell(i, j + 1));

  size_t i = 0, j = 0;
  while (i < n && j < m) {
    if (before[skip + i] == after[skip + j]) {
      result.push_back(Line::same(std::string(before[skip + i])));
      ++i;
      ++j;
    } else if (cell(i + 1, j) < cell(i, j + 1)) {
      result.push_back(Line::added(std::string(after[skip + j++])));
    } else {
      result.push_back(Line::removed(std::string(before[skip + i++])));
    }
  }
  for (; i < n; ++i) result.push_back(Line::removed(std::string(before[skip + i])));
  for (; j < m; ++j) result.push_back(Line::added(std::string(after[skip + j])));
  return result;
}

std::string LineDiff::render(const std::vector<Line>& lines) {
  std::string text;
  for (size_t index = 0; index < lines.size(); ++index) {
    if (index > 0) text += '\n';
    switch (lines[index].kind) {
      case Line::Kind::same: text += "  "; break;
      case Line::Kind::added: text += "+ "; break;
      case Line::Kind::removed: text += "- "; break;
    }
    text += lines[index].text;
  }
  return text;
}

bool LineDiff::changes(const std::vector<Line>& lines) {
  for (const Line& line : lines)
    if (line.kind != Line::Kind::same) return true;
  return false;
}

}  // namespace quorvane
