#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace quorvane {

struct ProgramResult {
  int exitCode = -1;   // -1 when the program could not be started, was killed or timed out
  std::string output;  // standard output (at most kMaxProgramOutput bytes are kept)
};

inline constexpr size_t kMaxProgramOutput = 1 << 20;

// Where a program's standard error goes: away (probes whose failures are reported otherwise), or
// to ours (commands whose messages the user should read).
enum class ProgramErrors { discarded, shown };

// Runs a program (looked up in PATH, no shell) with standard input from /dev/null and standard
// output captured, and waits at most `timeout` for it; a program still running then is killed.
// Never throws for what the program does.
ProgramResult runProgram(const std::vector<std::string>& arguments,
                         std::chrono::milliseconds timeout = std::chrono::seconds(10),
                         ProgramErrors errors = ProgramErrors::discarded);

}  // namespace quorvane
