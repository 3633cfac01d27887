#pragma once

#include <map>
#include <optional>
#include <string>
#include <string_view>

namespace quorvane {

// The variables that place a program in the user's graphical session: the X display and its
// authority file, the Wayland display, and the session bus (for notifications).
inline constexpr std::string_view kSessionVariables[] = {"DISPLAY", "WAYLAND_DISPLAY", "XAUTHORITY",
                                                         "DBUS_SESSION_BUS_ADDRESS"};

using SessionEnvironment = std::map<std::string, std::string>;

// The session variables in the output of `systemctl --user show-environment`: one NAME=VALUE a
// line, where a value with special characters is quoted as $'…' with backslash escapes. Lines that
// are not of that form, and variables that are not session variables, are skipped.
SessionEnvironment parseManagerEnvironment(std::string_view output);

// The session variables of this process's own environment.
SessionEnvironment ownSessionEnvironment();

// The graphical session to start a window in: each session variable from `manager` (the user
// manager's environment, read at this moment, so that an agent started before login finds the
// session), else from `own`. Nothing when neither gives a display (X11 or Wayland).
std::optional<SessionEnvironment> graphicalSession(const std::optional<SessionEnvironment>& manager,
                                                   const SessionEnvironment& own);

// Reads the user manager's environment with `systemctl --user show-environment` (found in PATH);
// nothing when it cannot be run or fails.
std::optional<SessionEnvironment> readManagerEnvironment();

}  // namespace quorvane
