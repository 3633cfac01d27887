#include "ProcessContext/ProgramName.h"

namespace quorvane {

namespace {

std::string fileName(const std::string& path) { return path.substr(path.rfind('/') + 1); }

}  // namespace

std::string programName(const std::string& executablePath,
                        const std::vector<std::string>& arguments) {
  std::string name = fileName(executablePath);
  if (name.starts_with("memfd:") && !arguments.empty() && !fileName(arguments[0]).empty())
    return fileName(arguments[0]);
  return name;
}

}  // namespace quorvane
