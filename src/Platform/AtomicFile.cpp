#include "Platform/AtomicFile.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <mutex>
#include <optional>
#include <system_error>

#include "Base/Hex.h"
#include "Base/Random.h"
#include "Platform/FileDescriptor.h"

namespace quorvane {

namespace {

constexpr std::string_view kTemporaryMarker = ".tmp-";
// The armed fault, if any. Checked on every step, so the common case is one relaxed load.
struct Fault {
  std::mutex mutex;
  std::optional<AtomicWriteStep> step;  // guarded by mutex
  int error = 0;                        // guarded by mutex
  std::filesystem::path target;         // guarded by mutex
};
std::atomic<bool> faultArmed{false};

Fault& fault() {
  static Fault instance;
  return instance;
}

// The injected error for `step` of a write to `path`, consumed, or 0.
int takeFault(AtomicWriteStep step, const std::filesystem::path& path) {
  if (!faultArmed.load(std::memory_order_relaxed)) return 0;
  Fault& armed = fault();
  std::lock_guard lock(armed.mutex);
  if (armed.step != step || (!armed.target.empty() && armed.target != path)) return 0;
  armed.step.reset();
  faultArmed = false;
  return armed.error;
}

[[noreturn]] void fail(int errorNumber, const std::string& what) {
  throw std::system_error(errorNumber, std::generic_category(), what);
}

// Runs one step's system call, unless a fault was injected for the step: then the call is not
// made and the injected error is reported as if the call had failed with it.
template <typename Call>
int runStep(AtomicWriteStep step, const std::filesystem::path& path, Call call) {
  if (int injected = takeFault(step, path)) {
    errno = injected;
    return -1;
  }
  return call();
}

void writeAll(int fd, ByteView contents, const std::filesystem::path& path,
              const std::string& what) {
  if (int injected = takeFault(AtomicWriteStep::write, path)) fail(injected, what);
  size_t written = 0;
  while (written < contents.size()) {
    ssize_t count = ::write(fd, contents.data() + written, contents.size() - written);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) fail(count < 0 ? errno : EIO, what);
    written += static_cast<size_t>(count);
  }
}

std::filesystem::path folderOf(const std::filesystem::path& path) {
  std::filesystem::path folder = path.parent_path();
  return folder.empty() ? std::filesystem::path(".") : folder;
}

}  // namespace

void writeFileAtomically(const std::filesystem::path& path, ByteView contents, mode_t mode) {
  const std::filesystem::path folder = folderOf(path);
  std::filesystem::path temporary;
  int fd = -1;
  // A random name collides only if another writer picked the same 64 bits; try a few times.
  for (int attempt = 0; attempt < 4 && fd < 0; ++attempt) {
    temporary = folder / ("." + path.filename().string() + std::string(kTemporaryMarker) +
                          hexEncode(crypto::randomBytes(8)));
    fd = runStep(AtomicWriteStep::createTemporary, path, [&] {
      return ::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, mode);
    });
    if (fd < 0 && errno != EEXIST) break;
  }
  if (fd < 0) fail(errno, "create " + temporary.string());
  FileDescriptor file(fd);
  try {
    if (::fchmod(file.get(), mode) != 0) fail(errno, "chmod " + temporary.string());
    writeAll(file.get(), contents, path, "write " + temporary.string());
    if (runStep(AtomicWriteStep::syncFile, path, [&] { return ::fsync(file.get()); }) != 0)
      fail(errno, "fsync " + temporary.string());
    if (runStep(AtomicWriteStep::rename, path,
                [&] { return ::rename(temporary.c_str(), path.c_str()); }) != 0)
      fail(errno, "rename to " + path.string());
  } catch (...) {
    ::unlink(temporary.c_str());
    throw;
  }
  FileDescriptor folderFile(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (folderFile.get() < 0) fail(errno, "open " + folder.string());
  if (runStep(AtomicWriteStep::syncFolder, path, [&] { return ::fsync(folderFile.get()); }) != 0)
    fail(errno, "fsync " + folder.string());
}

void createFolders(const std::filesystem::path& folder, mode_t mode) {
  if (folder.empty()) return;
  struct stat info {};
  if (::stat(folder.c_str(), &info) == 0) {
    if (!S_ISDIR(info.st_mode)) fail(ENOTDIR, "create folder " + folder.string());
    return;
  }
  if (errno != ENOENT) fail(errno, "stat " + folder.string());
  if (folder.has_parent_path() && folder.parent_path() != folder)
    createFolders(folder.parent_path(), mode);
  if (::mkdir(folder.c_str(), mode) != 0) {
    if (errno == EEXIST) return;  // made by someone else meanwhile
    fail(errno, "create folder " + folder.string());
  }
  if (::chmod(folder.c_str(), mode) != 0) fail(errno, "chmod " + folder.string());
}

bool isAtomicWriteTemporary(std::string_view fileName) {
  return fileName.size() > 1 && fileName[0] == '.' &&
         fileName.find(kTemporaryMarker) != std::string_view::npos;
}

void injectAtomicWriteFault(AtomicWriteStep step, int errorNumber,
                            const std::filesystem::path& target) {
  Fault& armed = fault();
  std::lock_guard lock(armed.mutex);
  armed.step = step;
  armed.error = errorNumber;
  armed.target = target;
  faultArmed = true;
}

void clearAtomicWriteFault() {
  Fault& armed = fault();
  std::lock_guard lock(armed.mutex);
  armed.step.reset();
  faultArmed = false;
}

}  // namespace quorvane
