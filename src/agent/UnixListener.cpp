#include "agent/UnixListener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>
#include <vector>

#include "agent/DaemonError.h"

namespace quorvane {
namespace {

// Clients that connect at once wait here until a thread accepts them; the kernel caps it at
// net.core.somaxconn. A short queue makes connect() block, and blocked connects are woken in no
// particular order, which is unfair to the clients that came first.
constexpr int kBacklog = 4096;

sockaddr_un addressOf(const std::filesystem::path& path) {
  const std::string text = path.string();
  if (text.size() > kMaxSocketPathLength)
    throw DaemonError(
        DaemonError::Kind::socketPath,
        "socket path is longer than " + std::to_string(kMaxSocketPathLength) + " bytes: " + text);
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  std::memcpy(address.sun_path, text.data(), text.size());
  return address;
}

// Removes folders this start made, innermost first, when the start fails.
void removeFolders(const std::vector<std::filesystem::path>& made) {
  for (auto at = made.rbegin(); at != made.rend(); ++at) ::rmdir(at->c_str());
}

// Refuses a folder that another user could swap the socket file in: one that is not a folder,
// belongs to someone other than this user or root, or that others may write to without the
// sticky bit (which lets only a file's owner remove or rename it, as in /tmp).
void checkFolder(const std::filesystem::path& folder) {
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) throw DaemonError::fromErrno("lstat " + folder.string());
  if (!S_ISDIR(info.st_mode) || (info.st_uid != ::getuid() && info.st_uid != 0))
    throw DaemonError(DaemonError::Kind::socketPath,
                      folder.string() + " is not a folder owned by this user");
  if ((info.st_mode & 0022) != 0 && (info.st_mode & S_ISVTX) == 0)
    throw DaemonError(DaemonError::Kind::socketPath,
                      "other users can write to " + folder.string() +
                          ", so the socket cannot be kept safe there; choose a folder of your own "
                          "with --socket, or make this one private with: chmod go-w " +
                          folder.string());
}

// Makes the missing folders of `folder` (0700: the agent's own folders are private) and checks
// the folder. A folder that exists keeps its mode. Returns the folders it made, outermost first.
std::vector<std::filesystem::path> prepareFolder(const std::filesystem::path& given) {
  const std::filesystem::path folder = given.empty() ? "." : given;
  std::vector<std::filesystem::path> missing;
  std::error_code error;
  for (std::filesystem::path at = folder;
       !at.empty() && !std::filesystem::exists(at, error) && at != at.parent_path();
       at = at.parent_path())
    missing.insert(missing.begin(), at);
  std::vector<std::filesystem::path> made;
  for (const std::filesystem::path& at : missing) {
    if (::mkdir(at.c_str(), 0700) == 0) {
      made.push_back(at);
    } else if (errno != EEXIST) {
      const int code = errno;
      removeFolders(made);
      throw DaemonError(DaemonError::Kind::socketPath,
                        "cannot create " + at.string() + ": " + std::strerror(code));
    }
  }
  try {
    checkFolder(folder);
  } catch (...) {
    removeFolders(made);
    throw;
  }
  return made;
}

}  // namespace

FileDescriptor connectUnix(const std::filesystem::path& path) {
  sockaddr_un address = addressOf(path);
  FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  if (!socket) throw DaemonError::fromErrno("socket");
  if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    return {};
  return socket;
}

UnixListener::UnixListener(std::filesystem::path path, FileDescriptor socket)
    : path_(std::move(path)), socket_(std::move(socket)) {
  struct stat info {};
  if (::stat(path_.c_str(), &info) == 0) {
    device_ = info.st_dev;
    inode_ = info.st_ino;
  }
}

UnixListener UnixListener::open(const std::filesystem::path& path) {
  sockaddr_un address = addressOf(path);
  const std::vector<std::filesystem::path> made = prepareFolder(path.parent_path());
  bool bound = false;
  try {
    struct stat existing {};
    if (::lstat(path.c_str(), &existing) == 0) {
      if (!S_ISSOCK(existing.st_mode))
        throw DaemonError(DaemonError::Kind::socketPath,
                          path.string() + " exists and is not a socket");
      if (connectUnix(path))
        throw DaemonError(DaemonError::Kind::alreadyRunning,
                          "another agent is already listening on " + path.string());
      ::unlink(path.c_str());  // stale: nobody answers there
    }

    FileDescriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!socket) throw DaemonError::fromErrno("socket");
    // Until the chmod the socket has the umask's mode; in a shared folder a client of another
    // user could connect in that moment, and would be refused as a foreign user. (A umask would
    // be process-wide and race with other threads' files.)
    if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
      throw DaemonError::fromErrno("bind " + path.string());
    bound = true;
    if (::chmod(path.c_str(), 0600) != 0) throw DaemonError::fromErrno("chmod " + path.string());
    if (::listen(socket.get(), kBacklog) != 0) throw DaemonError::fromErrno("listen");
    return UnixListener(path, std::move(socket));
  } catch (...) {
    if (bound) ::unlink(path.c_str());
    removeFolders(made);
    throw;
  }
}

bool UnixListener::stillInPlace() const {
  struct stat info {};
  return ::lstat(path_.c_str(), &info) == 0 && info.st_dev == device_ && info.st_ino == inode_;
}

void UnixListener::recreate() {
  UnixListener fresh = open(path_);
  socket_ = std::move(fresh.socket_);
  device_ = fresh.device_;
  inode_ = fresh.inode_;
}

void UnixListener::removeFile() const {
  if (stillInPlace()) ::unlink(path_.c_str());
}

}  // namespace quorvane
