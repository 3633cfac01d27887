#pragma once

#include <cstdint>
#include <ostream>
#include <string>

namespace quorvane {

// What verification of the activity log found wrong; each case names a row id:
//   modified(entryID)                a row whose link or hash does not check out
//   truncated(expectedLastID)        the anchor remembers a newer row than the log holds
//   truncatedStart(expectedFirstID)  the log no longer begins where the anchor says it does
struct ChainProblem {
  enum class Kind { modified, truncated, truncatedStart };

  static ChainProblem modified(int64_t entryID) { return {Kind::modified, entryID}; }
  static ChainProblem truncated(int64_t expectedLastID) {
    return {Kind::truncated, expectedLastID};
  }
  static ChainProblem truncatedStart(int64_t expectedFirstID) {
    return {Kind::truncatedStart, expectedFirstID};
  }

  Kind kind;
  int64_t entryID;

  // The sentence shown to the user.
  std::string message() const;

  friend bool operator==(const ChainProblem&, const ChainProblem&) = default;
  friend std::ostream& operator<<(std::ostream& out, const ChainProblem& problem) {
    return out << problem.message();
  }
};

}  // namespace quorvane
