#include "ConfigKit/SafeFileWriter.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <system_error>

#include "Platform/AtomicFile.h"

namespace quorvane::SafeFileWriter {

namespace {

// As many links as the kernel follows before it reports ELOOP.
constexpr int kMaxLinkHops = 40;

}  // namespace

std::string backupName(const std::string& fileName, Date now) {
  std::string stamp = now.iso8601();
  std::replace(stamp.begin(), stamp.end(), ':', '-');
  return fileName + "-" + stamp;
}

std::filesystem::path resolvedTarget(const std::filesystem::path& file) {
  std::filesystem::path target = file;
  for (int hop = 0; hop < kMaxLinkHops; ++hop) {
    if (!std::filesystem::is_symlink(std::filesystem::symlink_status(target))) return target;
    std::filesystem::path link = std::filesystem::read_symlink(target);
    target = link.is_absolute() ? link : target.parent_path() / link;
  }
  throw std::filesystem::filesystem_error(
      "resolve symbolic links", file,
      std::make_error_code(std::errc::too_many_symbolic_link_levels));
}

std::optional<std::filesystem::path> write(std::string_view data, const std::filesystem::path& file,
                                           const std::filesystem::path& backupDirectory, Date now) {
  const std::filesystem::path target = resolvedTarget(file);
  createFolders(backupDirectory, 0700);

  std::optional<std::filesystem::path> backup;
  mode_t mode = 0600;
  struct stat info {};
  if (::stat(target.c_str(), &info) == 0) {
    backup = backupDirectory / backupName(target.filename().string(), now);
    std::filesystem::remove_all(*backup);
    std::filesystem::copy_file(target, *backup);
    mode = info.st_mode & 07777;
  } else if (errno != ENOENT) {
    throw std::system_error(errno, std::generic_category(), "stat " + target.string());
  }

  createFolders(target.parent_path(), 0700);
  writeFileAtomically(target, ByteView(reinterpret_cast<const uint8_t*>(data.data()), data.size()),
                      mode);
  return backup;
}

}  // namespace quorvane::SafeFileWriter
