#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace quorvane {

// A line-by-line preview of a change to a text file.
struct LineDiff {
  // One line of the preview, without its line feed.
  struct Line {
    enum class Kind { same, added, removed };
    Kind kind = Kind::same;
    std::string text;

    static Line same(std::string text) { return {Kind::same, std::move(text)}; }
    static Line added(std::string text) { return {Kind::added, std::move(text)}; }
    static Line removed(std::string text) { return {Kind::removed, std::move(text)}; }
    friend bool operator==(const Line&, const Line&) = default;
  };

  // The longest-common-subsequence table may hold at most this many cells (4 bytes each), so a
  // preview never takes more than 64 MiB.
  static constexpr size_t kMaxTableCells = size_t{1} << 24;

  // The lines of `oldText` and `newText` (split at every line feed; an empty text is one empty
  // line) as a walk of their longest common subsequence: equal lines are `same`; otherwise the
  // line on the side that keeps the longer common rest is emitted, and on a tie the old line is
  // `removed` before the new one is `added`. Throws ConfigKitError::diffTooLarge when the table
  // would exceed kMaxTableCells.
  static std::vector<Line> lines(std::string_view oldText, std::string_view newText);

  // Each line prefixed with "  " (same), "+ " (added) or "- " (removed), joined with line feeds.
  static std::string render(const std::vector<Line>& lines);

  // Whether any line is added or removed.
  static bool changes(const std::vector<Line>& lines);
};

}  // namespace quorvane
