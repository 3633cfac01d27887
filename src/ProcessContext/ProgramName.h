#pragma once

#include <string>
#include <vector>

namespace quorvane {

// The name a process is shown by: its executable's file name. A program that runs from a memory
// file ("/memfd:…", as programs that re-execute themselves from memory do) has no file name of its
// own, so it is named as it was started: the file name of its first argument, when it has one.
std::string programName(const std::string& executablePath,
                        const std::vector<std::string>& arguments);

}  // namespace quorvane
