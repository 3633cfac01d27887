// The support folder's location, atomic replacement of files, and bounded whole-file reads.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <system_error>

#include "Platform/AtomicFile.h"
#include "Platform/Paths.h"
#include "Platform/WholeFile.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

namespace fs = std::filesystem;

// Sets or clears an environment variable for one scope.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, std::optional<std::string> value) : name_(name) {
    if (const char* old = std::getenv(name)) saved_ = old;
    if (value)
      setenv(name, value->c_str(), 1);
    else
      unsetenv(name);
  }
  ~ScopedVariable() {
    if (saved_)
      setenv(name_, saved_->c_str(), 1);
    else
      unsetenv(name_);
  }

 private:
  const char* name_;
  std::optional<std::string> saved_;
};

struct PathsCase {
  std::string name;
  std::optional<std::string> dataHome;
  std::string support;
};

class Paths : public ::testing::TestWithParam<PathsCase> {};

TEST_P(Paths, FollowTheEnvironment) {
  ScopedVariable home("HOME", "/home/test");
  ScopedVariable dataHome("XDG_DATA_HOME", GetParam().dataHome);
  EXPECT_EQ(supportFolder(), GetParam().support);
  EXPECT_EQ(keychainFolder(), fs::path(GetParam().support) / "keychain");
}

INSTANTIATE_TEST_SUITE_P(
    Files, Paths,
    ::testing::Values(PathsCase{"DataHomeUnset", std::nullopt, "/home/test/.local/share/quorvane"},
                      PathsCase{"DataHomeEmpty", "", "/home/test/.local/share/quorvane"},
                      PathsCase{"DataHomeRelative", "relative/data",
                                "/home/test/.local/share/quorvane"},
                      PathsCase{"DataHomeAbsolute", "/var/data", "/var/data/quorvane"}),
    [](const ::testing::TestParamInfo<PathsCase>& tested) { return tested.param.name; });

class AtomicFileTest : public ::testing::Test {
 protected:
  size_t entries() const { return std::distance(fs::directory_iterator(directory_.path()), {}); }

  testing::TemporaryDirectory directory_;
  fs::path target_ = directory_.path() / "file.json";
};

TEST_F(AtomicFileTest, ReplacesTheFileWithExactlyTheGivenMode) {
  const mode_t saved = umask(077);
  writeFileAtomically(target_, bytesOf("old"), 0644);
  umask(saved);
  struct stat info {};
  ASSERT_EQ(stat(target_.c_str(), &info), 0);
  EXPECT_EQ(info.st_mode & 07777, 0644u);

  writeFileAtomically(target_, bytesOf("new"), 0600);
  EXPECT_EQ(testing::readFile(target_), "new");
  EXPECT_EQ(entries(), 1u) << "no temporary file is left";
}

// A failure at any step up to the rename leaves the old file and no temporary; a failure to sync
// the folder comes after the rename, so the new file is already in place.
struct FaultCase {
  std::string name;
  AtomicWriteStep step;
  const char* expectedContents;
};

class AtomicFileFault : public AtomicFileTest, public ::testing::WithParamInterface<FaultCase> {};

TEST_P(AtomicFileFault, AFailedStepLeavesTheOldFileOrTheWholeNewOne) {
  writeFileAtomically(target_, bytesOf("old"), 0600);
  injectAtomicWriteFault(GetParam().step, ENOSPC);
  try {
    writeFileAtomically(target_, bytesOf("new"), 0600);
    ADD_FAILURE() << "the step did not fail";
  } catch (const std::system_error& error) {
    EXPECT_EQ(error.code().value(), ENOSPC);
  }
  clearAtomicWriteFault();
  EXPECT_EQ(testing::readFile(target_), GetParam().expectedContents);
  EXPECT_EQ(entries(), 1u);
}

INSTANTIATE_TEST_SUITE_P(
    Files, AtomicFileFault,
    ::testing::Values(FaultCase{"CreateTemporary", AtomicWriteStep::createTemporary, "old"},
                      FaultCase{"Write", AtomicWriteStep::write, "old"},
                      FaultCase{"SyncFile", AtomicWriteStep::syncFile, "old"},
                      FaultCase{"Rename", AtomicWriteStep::rename, "old"},
                      FaultCase{"SyncFolder", AtomicWriteStep::syncFolder, "new"}),
    [](const ::testing::TestParamInfo<FaultCase>& tested) { return tested.param.name; });

TEST_F(AtomicFileTest, CreatesMissingFoldersWithTheGivenMode) {
  const fs::path deep = directory_.path() / "a" / "b" / "c";
  createFolders(deep, 0700);
  for (const fs::path& folder : {directory_.path() / "a", directory_.path() / "a" / "b", deep}) {
    struct stat info {};
    ASSERT_EQ(stat(folder.c_str(), &info), 0);
    EXPECT_EQ(info.st_mode & 07777, 0700u) << folder;
  }
  testing::writeFile(directory_.path() / "plain", "");
  EXPECT_THROW(createFolders(directory_.path() / "plain" / "sub", 0700), std::system_error);
}

struct LimitCase {
  size_t limit;
  WholeFile::Status status;
};

void PrintTo(const LimitCase& c, std::ostream* out) { *out << "limit " << c.limit; }

class WholeFileLimit : public ::testing::TestWithParam<LimitCase> {};

TEST_P(WholeFileLimit, ReadsUpToTheLimitAndNoFurther) {
  testing::TemporaryDirectory directory;
  const fs::path path = directory.path() / "f";
  testing::writeFile(path, "0123456789");
  WholeFile file = readWholeFile(path, GetParam().limit);
  EXPECT_EQ(file.status, GetParam().status);
  if (GetParam().status == WholeFile::Status::ok) {
    EXPECT_EQ(textOf(file.contents.view()), "0123456789");
  }
}

INSTANTIATE_TEST_SUITE_P(TenBytes, WholeFileLimit,
                         ::testing::Values(LimitCase{10, WholeFile::Status::ok},
                                           LimitCase{100, WholeFile::Status::ok},
                                           LimitCase{9, WholeFile::Status::tooLarge}));

TEST(WholeFile, NamesWhatIsNotAFile) {
  testing::TemporaryDirectory directory;
  const fs::path path = directory.path() / "f";
  testing::writeFile(path, "0123456789");
  EXPECT_EQ(readWholeFile(directory.path() / "absent", 10).status, WholeFile::Status::notFound);
  EXPECT_EQ(readWholeFile(path / "below-a-file", 10).status, WholeFile::Status::notFound);
  EXPECT_EQ(readWholeFile(directory.path(), 10).status, WholeFile::Status::failed);
}

}  // namespace
}  // namespace quorvane
