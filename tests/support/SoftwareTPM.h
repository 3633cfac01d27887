#pragma once

#include <sys/types.h>

#include <filesystem>
#include <string>

#include "support/ChildProcess.h"

namespace quorvane::testing {

// A software TPM 2.0 (swtpm) serving on Unix sockets in `folder`, started by the test and
// stopped by its pid when the object dies. Its state lives in `folder` too, so two instances are
// two different TPMs: a key wrapped by one does not load in the other.
class SoftwareTPM {
 public:
  // Starts swtpm and waits (at most 10 s) until its sockets are there; fails the test otherwise.
  explicit SoftwareTPM(std::filesystem::path folder);
  ~SoftwareTPM();
  SoftwareTPM(const SoftwareTPM&) = delete;
  SoftwareTPM& operator=(const SoftwareTPM&) = delete;

  // Whether swtpm is installed (tests skip without it).
  static bool installed();

  // The TCTI configuration that reaches it ("swtpm:path=…").
  std::string tcti() const;
  pid_t pid() const { return child_.pid(); }

 private:
  std::filesystem::path folder_;
  RunningChild child_;
};

}  // namespace quorvane::testing
