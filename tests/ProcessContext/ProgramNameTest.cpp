#include <gtest/gtest.h>

#include "ProcessContext/ProgramName.h"

namespace quorvane {
namespace {

struct NameCase {
  std::string executable;
  std::vector<std::string> arguments;
  std::string name;
};

void PrintTo(const NameCase& c, std::ostream* out) { *out << c.executable; }

class ProgramName : public ::testing::TestWithParam<NameCase> {};

TEST_P(ProgramName, IsTheExecutableOrForAMemoryFileHowItWasStarted) {
  EXPECT_EQ(programName(GetParam().executable, GetParam().arguments), GetParam().name);
}

INSTANTIATE_TEST_SUITE_P(
    Executables, ProgramName,
    ::testing::Values(NameCase{"/usr/bin/git", {"git", "commit"}, "git"},
                      NameCase{"/usr/bin/git", {"/opt/other/name"}, "git"},
                      NameCase{"/memfd:sealed-runc", {"/usr/bin/runc", "init"}, "runc"},
                      NameCase{"/memfd:bin", {"deploy-tool"}, "deploy-tool"},
                      NameCase{"/memfd:bin", {}, "memfd:bin"},
                      NameCase{"/memfd:bin", {"/usr/bin/"}, "memfd:bin"}));

}  // namespace
}  // namespace quorvane
