#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <system_error>

#include "ConfigKit/SafeFileWriter.h"
#include "Platform/AtomicFile.h"
#include "support/TestSupport.h"

namespace quorvane {
namespace {

using testing::readFile;
using testing::writeFile;

mode_t permissions(const std::filesystem::path& path) {
  struct stat info {};
  EXPECT_EQ(::stat(path.c_str(), &info), 0) << path;
  return info.st_mode & 07777;
}

class SafeFileWriterTest : public ::testing::Test {
 protected:
  testing::TemporaryDirectory directory;
  std::filesystem::path file = directory.path() / ".ssh" / "config";
  std::filesystem::path backups = directory.path() / "support" / "backups";
  const Date now{1763715900};  // 2025-11-21T09:05:00Z
};

TEST_F(SafeFileWriterTest, BackupNameIsTheFileNameAndTheTimeWithoutColons) {
  EXPECT_EQ(SafeFileWriter::backupName("config", now), "config-2025-11-21T09-05-00Z");
}

TEST_F(SafeFileWriterTest, ANewFileGetsPrivatePermissionsAndNoBackup) {
  EXPECT_EQ(SafeFileWriter::write("new\n", file, backups, now), std::nullopt);
  EXPECT_EQ(readFile(file), "new\n");
  EXPECT_EQ(permissions(file), 0600u);
  EXPECT_EQ(permissions(file.parent_path()), 0700u);
  EXPECT_EQ(permissions(backups), 0700u);
}

TEST_F(SafeFileWriterTest, KeepsPermissionsAndTheSecondWriteOfASecondReplacesItsBackup) {
  std::filesystem::create_directories(file.parent_path());
  writeFile(file, "first\n");
  ASSERT_EQ(::chmod(file.c_str(), 0644), 0);
  auto backup = SafeFileWriter::write("second\n", file, backups, now);
  ASSERT_TRUE(backup);
  EXPECT_EQ(*backup, backups / "config-2025-11-21T09-05-00Z");
  EXPECT_EQ(readFile(*backup), "first\n");
  EXPECT_EQ(permissions(file), 0644u);

  EXPECT_EQ(SafeFileWriter::write("third\n", file, backups, now + 0.5), backup);
  EXPECT_EQ(readFile(*backup), "second\n");
  EXPECT_EQ(readFile(file), "third\n");
  EXPECT_EQ(std::distance(std::filesystem::directory_iterator(backups), {}), 1);
}

TEST_F(SafeFileWriterTest, WritesThroughSymbolicLinksAndKeepsTheLink) {
  const auto dotfiles = directory.path() / "dotfiles";
  std::filesystem::create_directories(dotfiles);
  std::filesystem::create_directories(file.parent_path());
  writeFile(dotfiles / "ssh_config", "mine\n");
  ASSERT_EQ(::chmod((dotfiles / "ssh_config").c_str(), 0640), 0);
  std::filesystem::create_symlink("../dotfiles/link", file);
  std::filesystem::create_symlink("ssh_config", dotfiles / "link");  // a chain of two links

  auto backup = SafeFileWriter::write("changed\n", file, backups, now);
  EXPECT_TRUE(std::filesystem::is_symlink(file));
  EXPECT_TRUE(std::filesystem::is_symlink(dotfiles / "link"));
  EXPECT_EQ(readFile(dotfiles / "ssh_config"), "changed\n");
  EXPECT_EQ(permissions(dotfiles / "ssh_config"), 0640u);
  ASSERT_TRUE(backup);
  EXPECT_EQ(readFile(*backup), "mine\n");

  // A dangling link gets its target made; a loop is an error.
  std::filesystem::remove(dotfiles / "ssh_config");
  SafeFileWriter::write("fresh\n", file, backups, now);
  EXPECT_EQ(readFile(dotfiles / "ssh_config"), "fresh\n");
  std::filesystem::create_symlink("loop", dotfiles / "loop");
  EXPECT_THROW(SafeFileWriter::write("x", dotfiles / "loop", backups, now),
               std::filesystem::filesystem_error);
}

TEST_F(SafeFileWriterTest, AFailedWriteLeavesTheFileAndKeepsTheBackup) {
  std::filesystem::create_directories(file.parent_path());
  writeFile(file, "before\n");
  for (AtomicWriteStep step : {AtomicWriteStep::createTemporary, AtomicWriteStep::write,
                               AtomicWriteStep::syncFile, AtomicWriteStep::rename}) {
    injectAtomicWriteFault(step, EIO, file);
    EXPECT_THROW(SafeFileWriter::write("after\n", file, backups, now), std::system_error);
    EXPECT_EQ(readFile(file), "before\n");
    EXPECT_EQ(readFile(backups / SafeFileWriter::backupName("config", now)), "before\n");
  }
  clearAtomicWriteFault();
  // The backup folder cannot be made: nothing is written.
  writeFile(directory.path() / "blocker", "");
  EXPECT_THROW(SafeFileWriter::write("after\n", file, directory.path() / "blocker" / "b", now),
               std::system_error);
  EXPECT_EQ(readFile(file), "before\n");
}

}  // namespace
}  // namespace quorvane
