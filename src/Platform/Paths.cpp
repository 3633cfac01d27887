#include "Platform/Paths.h"

#include <pwd.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>
#include <vector>

namespace quorvane {

namespace {

// An environment variable's value when it names an absolute path.
const char* absoluteEnvironmentPath(const char* name) {
  const char* value = std::getenv(name);
  return value != nullptr && value[0] == '/' ? value : nullptr;
}

}  // namespace

std::filesystem::path homeFolder() {
  if (const char* home = absoluteEnvironmentPath("HOME")) return home;
  long suggested = sysconf(_SC_GETPW_R_SIZE_MAX);
  std::vector<char> buffer(suggested > 0 ? static_cast<size_t>(suggested) : 16384);
  passwd entry{};
  passwd* found = nullptr;
  if (getpwuid_r(getuid(), &entry, buffer.data(), buffer.size(), &found) == 0 && found != nullptr &&
      found->pw_dir != nullptr && found->pw_dir[0] == '/')
    return found->pw_dir;
  throw std::runtime_error("no home folder: HOME is not set and the user has no password entry");
}

std::filesystem::path dataHomeFolder() {
  if (const char* dataHome = absoluteEnvironmentPath("XDG_DATA_HOME")) return dataHome;
  return homeFolder() / ".local" / "share";
}

std::filesystem::path supportFolder() { return dataHomeFolder() / "quorvane"; }

std::filesystem::path keychainFolder() { return supportFolder() / "keychain"; }

}  // namespace quorvane
