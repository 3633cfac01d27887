#include "agent/UnixListener.h"

#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "agent/DaemonError.h"

namespace quorvane {
namespace {

constexpr int kBacklog = 128;

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

// Makes the socket's folder private, or refuses one that other users could swap files in.
void prepareFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (error)
    throw DaemonError(DaemonError::Kind::socketPath,
                      "cannot create " + folder.string() + ": " + error.message());
  struct stat info {};
  if (::lstat(folder.c_str(), &info) != 0) throw DaemonError::fromErrno("lstat " + folder.string());
  if (!S_ISDIR(info.st_mode) || info.st_uid != ::getuid())
    throw DaemonError(DaemonError::Kind::socketPath,
                      folder.string() + " is not a folder owned by this user");
  if ((info.st_mode & 0077) != 0 && ::chmod(folder.c_str(), 0700) != 0)
    throw DaemonError::fromErrno("chmod " + folder.string());
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
  prepareFolder(path.parent_path());

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
  // The folder is private, so the moment between bind and chmod exposes nothing. (A umask
  // would be process-wide and race with other threads' files.)
  if (::bind(socket.get(), reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
    throw DaemonError::fromErrno("bind " + path.string());
  if (::chmod(path.c_str(), 0600) != 0) throw DaemonError::fromErrno("chmod " + path.string());
  if (::listen(socket.get(), kBacklog) != 0) throw DaemonError::fromErrno("listen");
  return UnixListener(path, std::move(socket));
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
