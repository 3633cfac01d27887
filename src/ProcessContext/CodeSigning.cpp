#include "ProcessContext/CodeSigning.h"

namespace quorvane {

namespace {

bool ownedByRootAndNotWritableByOthers(const struct stat& status) {
  return status.st_uid == 0 && (status.st_mode & (S_IWGRP | S_IWOTH)) == 0;
}

std::string_view lastComponent(std::string_view path) {
  size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? path : path.substr(slash + 1);
}

// Whether `canonical` and every directory above it pass ownedByRootAndNotWritableByOthers.
bool systemOwnedPath(const std::string& canonical, const struct stat& file) {
  if (!ownedByRootAndNotWritableByOthers(file)) return false;
  std::string directory = canonical;
  while (directory.size() > 1) {
    size_t slash = directory.rfind('/');
    directory.resize(slash == 0 ? 1 : slash);
    struct stat status {};
    if (lstat(directory.c_str(), &status) != 0 || !S_ISDIR(status.st_mode) ||
        !ownedByRootAndNotWritableByOthers(status))
      return false;
  }
  return true;
}

}  // namespace

bool isInterpreterName(std::string_view name) {
  // The dynamic linker runs any binary given as its argument: ld-linux-x86-64.so.2, ld-musl-….
  if (name.starts_with("ld-") || name.starts_with("ld.so")) return true;
  // Version suffixes: python3.11, perl5.36.0, ruby3.1, lua5.4, tclsh8.6, node18, php8.2.
  while (!name.empty() && ((name.back() >= '0' && name.back() <= '9') || name.back() == '.'))
    name.remove_suffix(1);
  static constexpr std::string_view kInterpreters[] = {
      "sh",      "bash",      "dash",   "zsh",    "ksh",   "mksh",   "fish",   "tcsh",  "csh",
      "ash",     "busybox",   "python", "pypy",   "node",  "nodejs", "deno",   "bun",   "perl",
      "ruby",    "php",       "lua",    "luajit", "tclsh", "wish",   "expect", "guile", "java",
      "Rscript", "osascript", "awk",    "gawk",   "mawk",  "nawk",   "env"};
  for (std::string_view interpreter : kInterpreters)
    if (name == interpreter) return true;
  return false;
}

SigningFacts signingFacts(const struct stat& running, const std::string& path) {
  SigningFacts facts;
  if (running.st_nlink == 0) return facts;  // deleted: nothing on disk to vouch for
  facts.signatureValid = false;
  facts.appleSigned = false;
  // The kernel reports the path it opened, absolute and free of symbolic links, as seen from this
  // process. It must lead, through real directories only, to that very file.
  if (path.empty() || path.front() != '/') return facts;
  const std::string& canonical = path;
  struct stat file {};
  if (lstat(canonical.c_str(), &file) != 0 || !S_ISREG(file.st_mode) ||
      file.st_dev != running.st_dev || file.st_ino != running.st_ino)
    return facts;
  if (isInterpreterName(lastComponent(canonical)) || !systemOwnedPath(canonical, file))
    return facts;
  facts.signatureValid = true;
  facts.appleSigned = true;
  facts.signingIdentifier = canonical;
  facts.teamIdentifier = std::string(kSystemTeam);
  return facts;
}

}  // namespace quorvane
