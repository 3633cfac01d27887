#pragma once

#include <sys/stat.h>

#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// Code-signing facts of a running program. Linux has no code signatures; what stands in for one is
// that only root could have put the file in place: the executable and every directory above it
// are owned by root and writable by nobody else. Such a program is "verified": its identifier is
// its canonical path and its team "system" (and `appleSigned`, meaning provided by the system, is
// true). Interpreters and the dynamic loader are never verified, since they run whatever they are
// given. Every field is absent when the running file cannot be examined or has been deleted.
struct SigningFacts {
  std::optional<std::string> signingIdentifier;
  std::optional<std::string> teamIdentifier;
  std::optional<bool> signatureValid;
  std::optional<bool> appleSigned;

  friend bool operator==(const SigningFacts&, const SigningFacts&) = default;
};

// The team of verified programs.
inline constexpr std::string_view kSystemTeam = "system";

// The facts for a process whose executable, as the kernel opened it, has the status `running`
// (stat of /proc/PID/exe) and was started from `path` (the link's target). The file at `path` in
// this process's mount namespace, reached through real directories only, must be that same file
// (device and inode) to be verified; its identifier is then `path`.
SigningFacts signingFacts(const struct stat& running, const std::string& path);

// Whether a file name (the last path component) names an interpreter or program loader: shells,
// language runtimes and the dynamic linker, with or without a version suffix ("python3.11").
bool isInterpreterName(std::string_view name);

}  // namespace quorvane
