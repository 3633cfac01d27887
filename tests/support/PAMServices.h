#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <string>
#include <string_view>

#include "support/TestSupport.h"

namespace quorvane::testing {

// Private PAM configurations for tests: a folder holding the service file "quorvane", which the
// agent reads through pam_start_confdir, so the system's /etc/pam.d is never used. Modules are
// named without a path and come from the system's module folder
// (/lib/x86_64-linux-gnu/security on Debian).
enum class PAMService {
  permit,  // pam_permit: verified without a prompt
  deny,    // pam_deny: always refused
  asks,    // an info message, then a secret prompt whose answer must be kTypedSecret
};

// What `PAMService::asks` tells first, and the answer it wants.
inline constexpr std::string_view kReaderMessage = "Place your finger on the reader";
inline constexpr std::string_view kTypedSecret = "open sesame";

// Writes the service into `folder` (made when missing) and returns `folder`. The asking service
// uses pam_exec with expose_authtok: pam_exec prompts "Password: " through the conversation and
// hands the typed text to a small script that compares it.
inline std::filesystem::path writePAMService(const std::filesystem::path& folder,
                                             PAMService service) {
  std::filesystem::create_directories(folder);
  std::string auth;
  switch (service) {
    case PAMService::permit: auth = "auth required pam_permit.so\n"; break;
    case PAMService::deny: auth = "auth required pam_deny.so\n"; break;
    case PAMService::asks: {
      const auto script = folder / "check-typed";
      writeFile(script, "#!/bin/bash\nIFS= read -r -d '' typed || true\n[ \"$typed\" = \"" +
                            std::string(kTypedSecret) + "\" ]\n");
      ::chmod(script.c_str(), 0700);
      auth = "auth optional pam_echo.so " + std::string(kReaderMessage) +
             "\nauth required pam_exec.so expose_authtok quiet " + script.string() + "\n";
      break;
    }
  }
  std::filesystem::remove(folder / "quorvane");
  writeFile(folder / "quorvane", auth + "account required pam_permit.so\n");
  return folder;
}

}  // namespace quorvane::testing
