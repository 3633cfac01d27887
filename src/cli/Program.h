#pragma once

#include <string>
#include <vector>

namespace quorvane::cli {

struct ProgramResult {
  int exitCode = -1;   // minus the signal when it was killed
  std::string output;  // standard output
};

// Runs a program found on PATH with `arguments` (the first is the program; no shell), standard
// input from /dev/null, standard output captured, standard error passed through to the user.
// Throws CommandFailure when the program cannot be started.
ProgramResult runProgram(const std::vector<std::string>& arguments);

}  // namespace quorvane::cli
