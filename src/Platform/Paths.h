#pragma once

#include <filesystem>

namespace quorvane {

// The folders the system keeps its state in. HOME and XDG_DATA_HOME are read from the
// environment at every call, so a test (or a second user profile) runs the whole system in a
// temporary home by setting them.
//
// Throws std::runtime_error when no home folder can be found (HOME unset or not absolute and no
// password entry for this user).
std::filesystem::path homeFolder();

// $XDG_DATA_HOME when it is set to an absolute path, else ~/.local/share (a relative or empty
// value is ignored, as the XDG base directory rules say).
std::filesystem::path dataHomeFolder();

// Where the sealed files, the activity log and backups live: <data home>/quorvane.
std::filesystem::path supportFolder();

// Where the file keychain keeps its items: <support folder>/keychain.
std::filesystem::path keychainFolder();

}  // namespace quorvane
