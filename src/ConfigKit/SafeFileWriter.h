#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

#include "Base/Date.h"

namespace quorvane {

// Careful replacement of a user's configuration file: a time-stamped backup of what was there,
// the file's permissions kept, and an atomic write, so the file is either unchanged or wholly
// replaced.
namespace SafeFileWriter {

// The name of the backup of `fileName` made at `now`: "config-2026-11-21T09-05-00Z" (the ISO 8601
// time with every ":" as "-", so the name is valid everywhere). Writes within one second share it.
std::string backupName(const std::string& fileName, Date now);

// The file that a write to `file` changes: `file` itself, or, when it is a symbolic link (or a
// chain of them), the file it finally points at, which may not exist yet. The link stays a link.
// Throws std::filesystem::filesystem_error for a loop of links.
std::filesystem::path resolvedTarget(const std::filesystem::path& file);

// Writes `data` to `file` (through symbolic links to their target):
//   1. creates `backupDirectory` (0700, with missing parents);
//   2. when the target exists, copies it to backupName(target's name, now) there, replacing
//      anything of that name;
//   3. creates the target's folder (0700) when it is missing;
//   4. writes atomically with the target's earlier permission bits, or 0600 for a new file.
// Returns the backup's path, or nothing when there was no file to back up. Throws the file
// system's error (std::system_error or std::filesystem::filesystem_error) at the first failing
// step; a backup already made stays.
std::optional<std::filesystem::path> write(std::string_view data, const std::filesystem::path& file,
                                           const std::filesystem::path& backupDirectory, Date now);

}  // namespace SafeFileWriter

}  // namespace quorvane
