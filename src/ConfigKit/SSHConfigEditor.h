#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace quorvane {

// Puts one managed block at the top of an ssh config text, and takes it out again, without
// touching the user's own lines. The block, each line ended by a line feed:
//
//   # >>> Quorvane >>> (managed by Quorvane; remove with quorvane setup ssh --undo)
//   Host * !EXCLUDED-1 !EXCLUDED-2
//     IdentityAgent SOCKET-PATH
//   # <<< Quorvane <<<
//
// ssh takes the first value it finds for an option, so the block's IdentityAgent wins over any
// later one for every host except the excluded ones, which keep their own agent. The first and
// last lines are the markers; each counts only as a whole line of the text.
struct SSHConfigEditor {
  static constexpr std::string_view kBeginMarker =
      "# >>> Quorvane >>> (managed by Quorvane; remove with quorvane setup ssh --undo)";
  // The first line of blocks written by earlier versions, still recognised.
  static constexpr std::string_view kEarlierBeginMarker =
      "# >>> Quorvane >>> (managed by Quorvane; remove with Quorvane \u2192 Setup \u2192 Undo)";
  static constexpr std::string_view kEndMarker = "# <<< Quorvane <<<";

  std::string socketPath;                  // as it is written into the file
  std::vector<std::string> excludedHosts;  // host patterns that keep their own agent

  // The four lines of the block, ending with a line feed.
  std::string managedBlock() const;

  // `text` with the block first, then (when the rest is not empty) one empty line and the rest,
  // which is `text` without any earlier complete block. Applying twice equals applying once.
  std::string applying(std::string_view text) const;

  // `text` without its first complete block (from the begin marker to the next end marker), and
  // without the line feed after the end marker and the one empty line after that. A text without
  // a begin marker, or with a begin marker but no end marker after it, comes back unchanged: a
  // damaged block is never half-removed.
  static std::string removingManagedBlock(std::string_view text);

  // Whether `text` holds a complete block.
  static bool hasManagedBlock(std::string_view text);

  // Throws ConfigKitError::invalidHostPattern unless `pattern` can stand in the Host line: not
  // empty, no whitespace, quotes or control characters, and no leading "!" (the block adds it).
  static void checkHostPattern(std::string_view pattern);

  // `path` as an IdentityAgent argument: "%" doubled (ssh expands % tokens there), and the whole
  // in double quotes when it holds a space or tab. Throws ConfigKitError::invalidSocketPath for a
  // path that ssh would read differently whatever is done (quotes, "${", control characters).
  static std::string socketPathArgument(std::string_view path);
};

}  // namespace quorvane
