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

TEST(Paths, FollowTheEnvironment) {
  struct Case {
    std::optional<std::string> dataHome;
    std::string support;
  };
  const Case cases[] = {
      {std::nullopt, "/home/test/.local/share/quorvane"},
      {"", "/home/test/.local/share/quorvane"},
      {"relative/data", "/home/test/.local/share/quorvane"},
      {"/var/data", "/var/data/quorvane"},
  };
  ScopedVariable home("HOME", "/home/test");
  for (const Case& c : cases) {
    ScopedVariable dataHome("XDG_DATA_HOME", c.dataHome);
    EXPECT_EQ(supportFolder(), c.support) << c.dataHome.value_or("(unset)");
    EXPECT_EQ(keychainFolder(), fs::path(c.support) / "keychain");
  }
}

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
TEST_F(AtomicFileTest, AFailedStepLeavesTheOldFileOrTheWholeNewOne) {
  struct Case {
    AtomicWriteStep step;
    const char* expectedContents;
  };
  const Case cases[] = {{AtomicWriteStep::createTemporary, "old"},
                        {AtomicWriteStep::write, "old"},
                        {AtomicWriteStep::syncFile, "old"},
                        {AtomicWriteStep::rename, "old"},
                        {AtomicWriteStep::syncFolder, "new"}};
  for (const Case& c : cases) {
    writeFileAtomically(target_, bytesOf("old"), 0600);
    injectAtomicWriteFault(c.step, ENOSPC);
    try {
      writeFileAtomically(target_, bytesOf("new"), 0600);
      ADD_FAILURE() << "step " << static_cast<int>(c.step) << " did not fail";
    } catch (const std::system_error& error) {
      EXPECT_EQ(error.code().value(), ENOSPC);
    }
    clearAtomicWriteFault();
    EXPECT_EQ(testing::readFile(target_), c.expectedContents) << static_cast<int>(c.step);
    EXPECT_EQ(entries(), 1u) << static_cast<int>(c.step);
  }
}

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

TEST(WholeFile, ReadsUpToTheLimitAndNoFurther) {
  testing::TemporaryDirectory directory;
  const fs::path path = directory.path() / "f";
  testing::writeFile(path, "0123456789");
  struct Case {
    size_t limit;
    WholeFile::Status status;
  };
  for (const Case& c : {Case{10, WholeFile::Status::ok}, Case{100, WholeFile::Status::ok},
                        Case{9, WholeFile::Status::tooLarge}}) {
    WholeFile file = readWholeFile(path, c.limit);
    EXPECT_EQ(file.status, c.status) << c.limit;
    if (c.status == WholeFile::Status::ok) {
      EXPECT_EQ(textOf(file.contents.view()), "0123456789");
    }
  }
  EXPECT_EQ(readWholeFile(directory.path() / "absent", 10).status, WholeFile::Status::notFound);
  EXPECT_EQ(readWholeFile(path / "below-a-file", 10).status, WholeFile::Status::notFound);
  EXPECT_EQ(readWholeFile(directory.path(), 10).status, WholeFile::Status::failed);
}

}  // namespace
}  // namespace quorvane
