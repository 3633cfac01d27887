#include "Platform/WholeFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdint>
#include <utility>

#include "Base/Check.h"
#include "Platform/FileDescriptor.h"

namespace quorvane {

namespace {

WholeFile failure(WholeFile::Status status, int error = 0) {
  WholeFile result;
  result.status = status;
  result.error = error;
  return result;
}

}  // namespace

WholeFile readWholeFile(const std::filesystem::path& path, size_t limit) {
  QUORVANE_CHECK(limit < SIZE_MAX, "the limit leaves room for one byte more");
  const FileDescriptor file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!file)
    return errno == ENOENT || errno == ENOTDIR ? failure(WholeFile::Status::notFound)
                                               : failure(WholeFile::Status::failed, errno);
  const int fd = file.get();

  struct stat info {};
  if (::fstat(fd, &info) != 0) return failure(WholeFile::Status::failed, errno);
  if (!S_ISREG(info.st_mode)) return failure(WholeFile::Status::failed, EINVAL);
  if (info.st_size < 0 || static_cast<uint64_t>(info.st_size) > limit)
    return failure(WholeFile::Status::tooLarge);

  // Room for the size seen plus one byte, so growth since fstat is noticed; the buffer grows
  // (by copying, so nothing is left unwiped) up to one byte over the limit.
  const size_t ceiling = limit + 1;
  SecureBytes buffer(std::min(static_cast<size_t>(info.st_size) + 1, ceiling));
  size_t filled = 0;
  for (;;) {
    if (filled == buffer.size()) {
      if (buffer.size() == ceiling) break;
      SecureBytes larger(std::min(buffer.size() * 2, ceiling));
      std::copy(buffer.data(), buffer.data() + filled, larger.data());
      buffer = std::move(larger);
    }
    ssize_t count = ::read(fd, buffer.data() + filled, buffer.size() - filled);
    if (count < 0 && errno == EINTR) continue;
    if (count < 0) return failure(WholeFile::Status::failed, errno);
    if (count == 0) break;
    filled += static_cast<size_t>(count);
  }
  if (filled > limit) return failure(WholeFile::Status::tooLarge);

  WholeFile result;
  result.status = WholeFile::Status::ok;
  result.contents = SecureBytes(buffer.view().first(filled));
  return result;
}

}  // namespace quorvane
